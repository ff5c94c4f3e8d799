#include "tools/Arbiter.h"

namespace QuillmarkTool {

Arbiter::Arbiter(std::string const& daemon, std::string const& policy) {
    if (daemon.empty()) {
        m_judge.emplace(readPolicy(policy));
        return;
    }
    m_daemon.emplace(daemon);
    if (!QuillmarkTool::ask(*m_daemon, AskPing, {}).empty())
        throw NoAnswer(m_daemon->text + ": answers with something else");
}

Verdict Arbiter::judge(MessageReport const& report) const {
    Features features = featuresOf(report);
    return m_judge ? m_judge->judge(features) : ask(std::move(features));
}

// A message may have more parts than fit one request. So the daemon first says which digests it knows, a
// handful at a time, and the features hold no others.
Verdict Arbiter::ask(Features features) const {
    std::vector<std::string> known;
    std::string request;
    auto const lookUp = [&] {
        if (request.empty()) return;
        std::string const answer = QuillmarkTool::ask(*m_daemon, AskDigests, request);
        for (std::string_view const line : lines(answer)) known.emplace_back(line.substr(0, line.find(' ')));
        request.clear();
    };
    for (std::string const& digest : features.digests) {
        if (request.size() + digest.size() + 1 > largestRequest) lookUp();
        request += digest + "\n";
    }
    lookUp();
    features.digests = std::move(known);
    std::string const answer = QuillmarkTool::ask(*m_daemon, AskFeatures, features.asText(largestRequest));
    std::optional<Verdict> const verdict = Verdict::fromText(answer);
    if (!verdict) throw NoAnswer(m_daemon->text + ": answers with no verdict");
    return *verdict;
}

}  // namespace QuillmarkTool
