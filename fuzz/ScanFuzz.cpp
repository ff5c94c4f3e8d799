// Whole messages through what quillmark scan does: structure, bodies, links, verdict, both reports.

#include <nlohmann/json.hpp>

#include "fuzz/support/Fuzz.h"
#include "include2/Uri"
#include "tools/Examine.h"
#include "tools/Json.h"
#include "tools/Judge.h"
#include "tools/Report.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;
using namespace QuillmarkTool;

namespace {

bool isPrintable(std::string const& text) {
    for (char const c : text)
        if ((c < ' ' && c != '\n') || c > '~') return false;
    return true;
}

/// What is wrong with one link of a report.
void check(LinkReport const& link) {
    Uri const uri(link.text);
    claimSame("the scheme of a link, read again", uri.scheme(), link.scheme);
    claim(!link.name.empty() || link.noRegisteredDomain, "a link without a host has no domain");
    claim(!link.isPrivate || link.ipLiteral, "only an address is private");
    claim(link.name.ends_with(link.domain), "a host ends with its domain");
}

void check(MessageReport const& report, Judge const& judge) {
    std::string const json = jsonOf(report);
    claim(isPrintable(json) && json.find('\n') == std::string::npos,
          "a report for programs is one line of ASCII");
    nlohmann::json const parsed = nlohmann::json::parse(json, nullptr, false);
    claim(parsed.is_object(), "a report for programs can be parsed");
    std::string const text = reportOf(report, Painter(false));
    claim(text.find('\x1b') == std::string::npos, "a report for people commands no terminal");
    claim(!text.empty() && text.back() == '\n', "a report for people ends with its line");
    for (LinkReport const& link : report.links) check(link);
    for (PartReport const& part : report.parts)
        claim(part.md5.empty() != part.error.empty(), "a part has a digest or an error");

    Features const features = featuresOf(report);
    std::string const asked = features.asText(1000);
    claim(asked.size() <= 1000, "features keep to their room");
    auto const again = Features::fromText(asked);
    claim(again.has_value(), "features can be read again");
    Verdict const verdict = judge.judge(*again);
    auto const told = Verdict::fromText(verdict.asText());
    claim(told.has_value(), "a verdict can be read again");
    claimSame("its score", told->score, verdict.score);
    claimSame("its action", nameOf(told->action), nameOf(verdict.action));
}

/// The reports of all messages, as text.
std::string reports(std::string const& mail, unsigned int memory, Judge const& judge) {
    ExamineOptions const options{"/tmp/quillmark-fuzz-XXXXXX", memory, true};
    Mime::Reader reader(mail);
    Mime::Message message;
    std::string all;
    for (int count = 0; reader.next(message); ++count) {
        claim(count < 10000, "a mailbox comes to an end");
        MessageReport const report = examine(message, options);
        check(report, judge);
        all += jsonOf(report) + "\n";
    }
    return all;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const mail = Input(data, size).rest();
    static Judge const judge(readPolicy(""));
    claimSame("bodies in memory and in swap files", reports(mail, 1 << 20, judge), reports(mail, 0, judge));
    return 0;
}
