#pragma once
// From what a message shows to what is to be done with it. The same judge sits in a scan and in a daemon.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "include2/ClassifierDetail"
#include "tools/MessageReport.h"
#include "tools/Policy.h"

namespace QuillmarkTool {

/// What a message is judged by.
struct Features {
    struct Link {
        std::string host;      ///< the whole host name in ASCII, or the address
        bool hasUser = false;  ///< "http://user@host/"
        bool operator==(Link const&) const = default;
    };
    std::string sender;  ///< the domain of who says that he sent it; may be empty
    std::vector<Link> links;
    std::vector<std::string> digests;  ///< of its parts, in MD5
    std::vector<std::string> names;    ///< of its attachments
    bool isCut = false;                ///< some links or names are left out

    /// The features as lines of text of at most @p limit bytes; what is likely to matter least goes first.
    std::string asText(std::size_t limit) const;
    /// The other way round; nothing for what is no such text.
    static std::optional<Features> fromText(std::string_view text);
};

Features featuresOf(MessageReport const& report);

enum class Action { Accept, Review, Reject };
std::string nameOf(Action action);

/// What a judge says of a message.
struct Verdict {
    unsigned int score = 0;
    Action action = Action::Accept;
    /// toString() gives the rule, its score and what it was found on: "private-link 60 10.0.0.1".
    std::vector<Quillmark::ClassifierDetail> reasons;

    std::string asText() const;
    static std::optional<Verdict> fromText(std::string_view text);
};

/// Judges by one policy. Threads: any, at once.
class Judge {
public:
    explicit Judge(Policy policy) : m_policy(std::move(policy)) {}
    Verdict judge(Features const& features) const;
    Policy const& policy() const { return m_policy; }

private:
    Policy const m_policy;
};

/// Whether a label of the name is written in letters of scripts that no language uses together.
bool mixesScripts(std::string const& asciiHost);

/// The text line by line, without the ends of lines.
std::vector<std::string_view> lines(std::string_view text);

}  // namespace QuillmarkTool
