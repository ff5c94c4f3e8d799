// What a scan and a daemon tell each other, and the policy that an operator writes.

#include "fuzz/support/Fuzz.h"
#include "tools/Judge.h"
#include "tools/Policy.h"

using namespace QuillmarkFuzz;
using namespace QuillmarkTool;

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();
    static Judge const builtIn(readPolicy(""));

    if (auto const features = Features::fromText(text)) {
        std::string const whole = features->asText(1 << 20);
        auto const again = Features::fromText(whole);
        claim(again.has_value(), "features written down can be read");
        claimSame("and written again", again->asText(1 << 20), whole);
        std::string const cut = features->asText(200);
        claim(cut.size() <= 200 && Features::fromText(cut).has_value(), "so can features that are cut");
        Verdict const verdict = builtIn.judge(*again);
        auto const told = Verdict::fromText(verdict.asText());
        claim(told.has_value(), "a verdict written down can be read");
        claimSame("and written again", told->asText(), verdict.asText());
    }
    if (auto const verdict = Verdict::fromText(text)) {
        auto const again = Verdict::fromText(verdict->asText());
        claim(again.has_value(), "a verdict that was read can be written");
        claimSame("and read again", again->asText(), verdict->asText());
    }
    try {
        Policy const policy = parsePolicy("policy", text);
        for (unsigned int const score : policy.scores) claim(score <= 1000, "no score is too large");
        for (auto const& [digest, what] : policy.digests) claim(isDigest(digest), "digests are digests");
        Judge const judge(policy);
        if (auto const features = Features::fromText(text)) judge.judge(*features);
    } catch (BadPolicy const& e) {
        claim(std::string_view(e.what()).starts_with("policy: line "), "a bad policy is told with its line");
    }
    return 0;
}
