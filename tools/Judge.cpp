#include "tools/Judge.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <set>
#include <unordered_map>

#include "include2/HostName"
#include "include2/IPAddress"
#include "tools/Examine.h"
#include "tools/Terminal.h"

namespace QuillmarkTool {
using namespace Quillmark;
namespace {

/// A finding, as others see it: the rule, its score, what it was found on.
class Finding final : public ClassifierDetailImpl {
public:
    explicit Finding(std::string_view text) : m_text(text) {}
    bool isVirus() const override {
        return m_text.starts_with(ruleNames[static_cast<std::size_t>(Rule::KnownDigest)]);
    }
    std::string toString(unsigned char /*selector*/) const override { return m_text; }

private:
    std::string const m_text;
};

ClassifierDetail detail(std::string_view text) {
    return {new Finding(text), false};
}

/// What one rule was found on, each thing once, in the order found.
class Offenders {
public:
    void add(std::string const& what) {
        if (m_count == 0) m_first = what;
        if (m_seen.insert(what).second) ++m_count;
    }
    bool empty() const { return m_count == 0; }
    std::string text() const {
        return m_count == 1 ? m_first : m_first + " and " + std::to_string(m_count - 1) + " more";
    }

private:
    std::string m_first;
    std::set<std::string> m_seen;
    std::size_t m_count = 0;
};

using ScriptSet = std::set<GUnicodeScript>;

// What is written together in honest names: each language with what it borrows.
bool belongTogether(ScriptSet const& scripts) {
    static std::array<ScriptSet, 3> const languages{{
        {G_UNICODE_SCRIPT_LATIN, G_UNICODE_SCRIPT_HAN, G_UNICODE_SCRIPT_HIRAGANA, G_UNICODE_SCRIPT_KATAKANA},
        {G_UNICODE_SCRIPT_LATIN, G_UNICODE_SCRIPT_HAN, G_UNICODE_SCRIPT_BOPOMOFO},
        {G_UNICODE_SCRIPT_LATIN, G_UNICODE_SCRIPT_HAN, G_UNICODE_SCRIPT_HANGUL},
    }};
    return scripts.size() < 2 || std::any_of(languages.begin(), languages.end(), [&](ScriptSet const& known) {
               return std::includes(known.begin(), known.end(), scripts.begin(), scripts.end());
           });
}

std::string registeredDomain(std::string const& name) {
    HostName const host(name, true, false);
    if (host.isNull() || host.isIPAddress()) return {};
    return host.domain().empty() ? host.asString() : host.domain();
}

/// One of them is the other or lies below it, which without lists is all that can be said.
bool areRelated(std::string const& a, std::string const& b) {
    return a == b || a.ends_with("." + b) || b.ends_with("." + a);
}

/// A host as the rules see it.
struct Host {
    bool isAddress = false;
    bool isPrivate = false;
    std::string domain;
};

Host hostOf(std::string const& name) {
    Host host;
    HostName const parsed(name, true, false);
    if (parsed.isNull()) return host;
    host.isAddress = parsed.isIPAddress();
    if (host.isAddress)
        host.isPrivate = isPrivateAddress(IPAddress(parsed.asString()));
    else
        host.domain = parsed.domain().empty() ? parsed.asString() : parsed.domain();
    return host;
}

/// Hosts that were looked at already: many links of a message lead to one host.
class Hosts {
public:
    Host const& operator[](std::string const& name) {
        auto const [place, isNew] = m_hosts.try_emplace(name);
        if (isNew) place->second = hostOf(name);
        return place->second;
    }

private:
    std::unordered_map<std::string, Host> m_hosts;
};

/// A value that stands on a line of its own: what would end the line is replaced.
std::string onOneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\0'; }, '?');
    return text;
}

/// A name as it is when the attachment is saved, for programs that leave out what nobody sees and systems that leave
/// out what stands at the end.
std::string savedName(std::string const& name) {
    std::string saved = withoutHidden(name);
    saved.resize(saved.find_last_not_of(" .") + 1);
    return saved;
}

std::string withoutControls(std::string text) {
    std::erase_if(text, [](unsigned char c) { return c < ' ' || c == 0x7f; });
    return text;
}

template <class Number>
std::optional<Number> number(std::string_view text) {
    Number value{};
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace

std::vector<std::string_view> lines(std::string_view text) {
    std::vector<std::string_view> all;
    while (!text.empty()) {
        all.push_back(text.substr(0, text.find('\n')));
        text.remove_prefix(std::min(text.size(), all.back().size() + 1));
    }
    return all;
}

bool mixesScripts(std::string const& asciiHost) {
    if (asciiHost.find("xn--") == std::string::npos) return false;
    std::string const name = HostName::aceToIDN(asciiHost);
    ScriptSet scripts;
    for (char const* at = name.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        if (*at == '.') {
            if (!belongTogether(scripts)) return true;
            scripts.clear();
            continue;
        }
        GUnicodeScript const script = g_unichar_get_script(g_utf8_get_char(at));
        if (script != G_UNICODE_SCRIPT_COMMON && script != G_UNICODE_SCRIPT_INHERITED) scripts.insert(script);
    }
    return !belongTogether(scripts);
}

Features featuresOf(MessageReport const& report) {
    Features features;
    for (char const* name : {"From", "Sender"})
        for (AddressField const& field : report.fields)
            if (features.sender.empty() && field.name == name && !field.addresses.empty())
                features.sender = field.addresses.front().domain;
    if (features.sender.empty() && report.envelope && report.envelope->address)
        features.sender = report.envelope->address->domain;
    for (LinkReport const& link : report.links)
        if (!link.name.empty() && link.scheme != "mailto:")
            features.links.push_back({link.name, link.hasUser});
    for (PartReport const& part : report.parts) {
        if (!part.md5.empty()) features.digests.push_back(part.md5);
        for (std::string const& name : part.fileNames) features.names.push_back(withoutControls(name));
    }
    for (std::string const& name : report.outerNames) features.names.push_back(withoutControls(name));
    return features;
}

std::string Features::asText(std::size_t limit) const {
    static constexpr std::string_view cut = "cut\n";
    static constexpr std::size_t longestName = 255;
    bool left = isCut;
    std::size_t size = cut.size();
    std::set<std::string> written;
    auto const add = [&](std::string& text, char const* key, std::string const& value) {
        std::string const line = key + onOneLine(value) + "\n";
        if (!written.insert(line).second) return;
        if (size + line.size() > limit) {
            left = true;
            return;
        }
        size += line.size();
        text += line;
    };
    std::string text;
    if (!sender.empty()) add(text, "sender ", sender);
    for (std::string const& digest : digests) add(text, "digest ", digest);
    // First the links that a rule may find, and those that speak for the sender. Whichever fit, they are written
    // in their own order: of the links that offend against a rule, its reason names the first.
    std::string const own = registeredDomain(onOneLine(sender));
    std::vector<std::string> chosen(links.size());
    std::vector<std::size_t> others;
    auto const choose = [&](std::size_t i) {
        add(chosen[i], links[i].hasUser ? "user-link " : "link ", links[i].host);
    };
    for (std::size_t i = 0; i < links.size(); ++i) {
        std::string const name = onOneLine(links[i].host);  // as whoever reads it will see it
        Host const host = hostOf(name);
        bool const matters = links[i].hasUser || host.isAddress || name.find("xn--") != std::string::npos ||
                             (!own.empty() && areRelated(host.domain, own));
        if (matters)
            choose(i);
        else
            others.push_back(i);
    }
    std::string namesText;
    for (std::string const& name : names) {
        // What a file is counts more than how it begins, and no file's name is longer.
        std::size_t const cutOff = name.size() - std::min(name.size(), longestName);
        left = left || cutOff != 0;
        add(namesText, "name ", name.substr(cutOff));
    }
    for (std::size_t const i : others) choose(i);
    for (std::string const& line : chosen) text += line;
    text += namesText;
    return left ? text.append(cut) : text;
}

std::optional<Features> Features::fromText(std::string_view text) {
    Features features;
    for (std::string_view const line : lines(text)) {
        std::string_view const key = line.substr(0, line.find(' '));
        std::string const value(line.substr(std::min(line.size(), key.size() + 1)));
        if (key == "sender")
            features.sender = value;
        else if (key == "link" || key == "user-link")
            features.links.push_back({value, key == "user-link"});
        else if (key == "digest")
            features.digests.push_back(value);
        else if (key == "name")
            features.names.push_back(value);
        else if (line == "cut")
            features.isCut = true;
        else
            return std::nullopt;
    }
    return features;
}

std::string nameOf(Action action) {
    static constexpr std::array<char const*, 3> names{"accept", "review", "reject"};
    return names[static_cast<std::size_t>(action)];
}

std::string Verdict::asText() const {
    std::string text = "score " + std::to_string(score) + "\naction " + nameOf(action) + "\n";
    for (ClassifierDetail const& reason : reasons) text += "reason " + onOneLine(reason.toString(0)) + "\n";
    return text;
}

std::optional<Verdict> Verdict::fromText(std::string_view text) {
    auto const all = lines(text);
    if (all.size() < 2 || !all[0].starts_with("score ") || !all[1].starts_with("action "))
        return std::nullopt;
    Verdict verdict;
    auto const score = number<unsigned int>(all[0].substr(6));
    if (!score) return std::nullopt;
    verdict.score = *score;
    bool known = false;
    for (Action const action : {Action::Accept, Action::Review, Action::Reject})
        if (all[1].substr(7) == nameOf(action)) verdict.action = action, known = true;
    if (!known) return std::nullopt;
    for (std::size_t i = 2; i < all.size(); ++i) {
        if (!all[i].starts_with("reason ")) return std::nullopt;
        verdict.reasons.push_back(detail(all[i].substr(7)));
    }
    return verdict;
}

Verdict Judge::judge(Features const& features) const {
    std::array<Offenders, ruleNames.size()> found;
    auto const offends = [&](Rule rule, std::string const& what) {
        found[static_cast<std::size_t>(rule)].add(what);
    };
    std::string const own = registeredDomain(features.sender);
    std::string firstStranger;
    bool speaksForSender = false;
    Hosts hosts;
    for (Features::Link const& link : features.links) {
        Host const& host = hosts[link.host];
        if (host.isAddress) offends(host.isPrivate ? Rule::PrivateLink : Rule::IpLink, link.host);
        if (link.hasUser) offends(Rule::UserInLink, link.host);
        if (mixesScripts(link.host)) offends(Rule::MixedScripts, link.host);
        if (host.domain.empty()) continue;
        if (areRelated(host.domain, own))
            speaksForSender = true;
        else if (firstStranger.empty())
            firstStranger = host.domain;
    }
    for (std::string const& digest : features.digests) {
        auto const known = m_policy.digests.find(digest);
        if (known != m_policy.digests.end())
            offends(Rule::KnownDigest, known->second.empty() ? digest : digest + " " + known->second);
    }
    auto const isUnwanted = [&](std::string const& name) {
        return m_policy.attachmentNames.match(name, nullptr);
    };
    for (std::string const& name : features.names) {
        std::string const saved = savedName(name);
        if (isUnwanted(name) || (saved != name && isUnwanted(saved))) offends(Rule::AttachmentName, name);
    }
    if (!own.empty() && !speaksForSender && !firstStranger.empty())
        offends(Rule::UnrelatedSender, own + " does not link to itself but to " + firstStranger);

    Verdict verdict;
    for (std::size_t i = 0; i < found.size(); ++i) {
        unsigned int const score = m_policy.scores[i];
        if (score == 0 || found[i].empty()) continue;
        verdict.score += score;
        verdict.reasons.push_back(
            detail(std::string(ruleNames[i]) + " " + std::to_string(score) + " " + found[i].text()));
    }
    if (features.isCut) verdict.reasons.push_back(detail("cut 0 more links or names than were looked at"));
    if (m_policy.review != 0 && verdict.score >= m_policy.review) verdict.action = Action::Review;
    if (m_policy.reject != 0 && verdict.score >= m_policy.reject) verdict.action = Action::Reject;
    return verdict;
}

}  // namespace QuillmarkTool
