#include "tools/Policy.h"

#include <algorithm>
#include <charconv>

#include "tools/DefaultPolicy.h"
#include "tools/Input.h"

namespace QuillmarkTool {
namespace {

// Scores add up, so none is so large that they could not.
constexpr unsigned int largestScore = 1000;

/// One line, taken apart word by word.
class Words {
public:
    explicit Words(std::string_view line) : m_rest(line) {}
    std::string_view next() {
        skipBlanks();
        std::string_view const word = m_rest.substr(0, m_rest.find_first_of(" \t\r"));
        m_rest.remove_prefix(word.size());
        return word;
    }
    std::string_view rest() {
        skipBlanks();
        std::string_view const all = m_rest.substr(0, m_rest.find_last_not_of(" \t\r") + 1);
        m_rest = {};
        return all;
    }

private:
    void skipBlanks() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(" \t\r"), m_rest.size())); }
    std::string_view m_rest;
};

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

class Reader {
public:
    explicit Reader(std::string const& name) { m_policy.name = name; }

    void line(std::string_view text) {
        ++m_number;
        Words words(text);
        std::string_view const kind = words.next();
        if (kind.empty() || kind.front() == '#') return;
        if (kind == "rule")
            rule(words);
        else if (kind == "action")
            action(words);
        else if (kind == "digest")
            digest(words);
        else if (kind == "name")
            attachmentName(words);
        else
            refuse(quoted(kind) + " is none of rule, action, digest and name");
    }
    Policy const& policy() const { return m_policy; }

private:
    void rule(Words& words) {
        std::string_view const name = words.next();
        auto const* const found = std::find(ruleNames.begin(), ruleNames.end(), name);
        if (found == ruleNames.end()) refuse(quoted(name) + " is no rule");
        m_policy.scores[static_cast<std::size_t>(found - ruleNames.begin())] = score(words);
    }
    void action(Words& words) {
        std::string_view const name = words.next();
        if (name != "review" && name != "reject") refuse(quoted(name) + " is no action");
        (name == "review" ? m_policy.review : m_policy.reject) = score(words);
    }
    void digest(Words& words) {
        std::string digest(words.next());
        for (char& c : digest)
            if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
        if (!isDigest(digest)) refuse(quoted(digest) + " is no MD5 digest");
        m_policy.digests[digest] = words.rest();
    }
    void attachmentName(Words& words) {
        std::string_view const pattern = words.rest();
        if (pattern.empty()) refuse("a pattern is missing");
        m_policy.attachmentNames.add(std::string(pattern));
    }
    unsigned int score(Words& words) const {
        std::string_view const text = words.next();
        unsigned int number = 0;
        auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        bool const isNumber = !text.empty() && error == std::errc() && end == text.data() + text.size();
        if (!isNumber || number > largestScore)
            refuse(quoted(text) + " is no number from 0 to " + std::to_string(largestScore));
        std::string_view const more = words.next();
        if (!more.empty() && more.front() != '#') refuse(quoted(more) + " stands behind the number");
        return number;
    }
    [[noreturn]] void refuse(std::string const& reason) const {
        throw BadPolicy(m_policy.name + ": line " + std::to_string(m_number) + ": " + reason);
    }

    Policy m_policy;
    std::size_t m_number = 0;
};

}  // namespace

bool isDigest(std::string_view text) {
    return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

Policy parsePolicy(std::string const& name, std::string_view text) {
    Reader reader(name);
    while (!text.empty()) {
        std::string_view const line = text.substr(0, text.find('\n'));
        reader.line(line);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return reader.policy();
}

Policy readPolicy(std::string const& file) {
    if (file.empty()) return parsePolicy("the built-in policy", defaultPolicy);
    std::string text;
    try {
        text = contentsOf(file);
    } catch (std::system_error const& e) {
        throw UnreadablePolicy(e);
    }
    return parsePolicy(file, text);
}

}  // namespace QuillmarkTool
