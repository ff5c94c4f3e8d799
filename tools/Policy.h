#pragma once
// What makes a message suspicious and what is done then, as an operator writes it down.

#include <array>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "include2/PatternContainer"

namespace QuillmarkTool {

/// What a message is looked at for. The order is that of the names in ruleNames.
enum class Rule {
    PrivateLink,
    IpLink,
    UserInLink,
    MixedScripts,
    KnownDigest,
    AttachmentName,
    UnrelatedSender
};

inline constexpr std::array<std::string_view, 7> ruleNames{
    "private-link", "ip-link",         "user-in-link",    "mixed-scripts",
    "known-digest", "attachment-name", "unrelated-sender"};

/// The file cannot be read as a policy. what() says why, with the file and the line.
struct BadPolicy : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The file cannot be read at all.
struct UnreadablePolicy : BadPolicy {
    explicit UnreadablePolicy(std::system_error const& e) : BadPolicy(e.what()), error(e.code().value()) {}
    int error;  ///< why, as errno
};

struct Policy {
    std::string name;                                     ///< where it comes from
    std::array<unsigned int, ruleNames.size()> scores{};  ///< 0: the rule is off
    unsigned int review = 0;                     ///< the score from which a message is reviewed; 0: never
    unsigned int reject = 0;                     ///< the score from which it is rejected; 0: never
    std::map<std::string, std::string> digests;  ///< MD5 in lower case, and what it is the digest of
    Quillmark::PatternContainer attachmentNames;

    unsigned int scoreOf(Rule rule) const { return scores[static_cast<std::size_t>(rule)]; }
};

/// The policy in @p file or, when that is empty, the one that is built in. Throws BadPolicy, among them
/// UnreadablePolicy.
Policy readPolicy(std::string const& file);

/// Reads a policy from its text. Throws BadPolicy.
Policy parsePolicy(std::string const& name, std::string_view text);

/// Whether the text is the digest of something: 32 hexadecimal digits in lower case.
bool isDigest(std::string_view text);

}  // namespace QuillmarkTool
