// The structure of messages, as their senders write it and as far as it can be read.

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "tests/tools/Scans.h"

using namespace QuillmarkTest;

namespace {

/// The reports on what is in a file or, without a name, in a text.
std::vector<nlohmann::json> reports(std::string const& file, Surroundings const& surroundings = {}) {
    std::vector<nlohmann::json> found;
    std::vector<std::string> arguments{"--json", "--memory", "1"};
    if (!file.empty()) arguments.push_back(file);
    for (std::string const& line : linesOf(scan(arguments, surroundings).out))
        found.push_back(nlohmann::json::parse(line));
    return found;
}

nlohmann::json reportOn(std::string const& message) {
    return reports("", {message, {}, ""}).at(0);
}

/// The reports on a file on a disk that cannot be read from a place on.
std::vector<nlohmann::json> readUpTo(std::size_t place, std::string const& content) {
    TemporaryDirectory const disk;
    char const* const options = std::getenv("ASAN_OPTIONS");
    Surroundings bad;
    bad.environment = {{"LD_PRELOAD", QUILLMARK_FAILING_READ},
                       {"QUILLMARK_READ_FAILS_AT", std::to_string(place)},
                       {"ASAN_OPTIONS", std::string(options ? options : "") + ":verify_asan_link_order=0"}};
    return reports(disk.write("file.bad", content), bad);
}

using Texts = std::vector<std::string>;

std::string const fault = "the file cannot be read to the end of the message: Input/output error";
std::string const incomplete = ": the file could not be read to the end of the part";

std::string lines(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += "forty characters make one line of the text\n";
    return text;
}

}  // namespace

TEST(Mime, KnowsAMessageThatCannotBeReadToItsEnd) {
    auto const found = readUpTo(20'000, "From: a@example.com\n\n" + lines(1000) + "http://10.0.0.1/evil\n");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0]["good"], false);
    EXPECT_EQ(found[0]["errors"], (Texts{fault, "part 1" + incomplete}));
    EXPECT_TRUE(found[0]["parts"][0]["md5"].is_null());
    EXPECT_EQ(found[0]["parts"][0]["bytes"], 20'000 - 21);
}

TEST(Mime, KnowsTheMessageOfAMailboxThatCannotBeReadToItsEnd) {
    std::string const first = "From a\nFrom: a@example.com\n\nfirst\n\n";
    auto const found =
        readUpTo(20'000, first + "From a\nFrom: b@example.com\n\n" + lines(1000) + "\n" + first);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0]["good"], true);
    EXPECT_TRUE(found[0]["parts"][0]["md5"].is_string());
    EXPECT_EQ(found[1]["errors"], (Texts{fault, "part 1" + incomplete}));
    EXPECT_TRUE(found[1]["parts"][0]["md5"].is_null());
}

TEST(Mime, KnowsWhichPartCannotBeReadToItsEnd) {
    std::string const text =
        "From: a@example.com\nContent-Type: multipart/mixed; boundary=x\n\n--x\n\nfirst\n--x\n\n" +
        lines(1000) + "\n--x--\n" + lines(1000);
    auto const inPart = readUpTo(20'000, text).at(0);
    EXPECT_EQ(inPart["errors"],
              (Texts{"a multipart breaks off before its end", fault, "part 2" + incomplete}));
    EXPECT_TRUE(inPart["parts"][0]["md5"].is_string());
    EXPECT_TRUE(inPart["parts"][1]["md5"].is_null());
    auto const behindAll = readUpTo(60'000, text).at(0);
    EXPECT_EQ(behindAll["errors"], Texts{fault});
    EXPECT_TRUE(behindAll["parts"][1]["md5"].is_string());
}

TEST(Mime, GivesNoDigestOfAPieceWhereverTheFileEndsToBeRead) {
    std::string const message =
        "From a\nFrom: a@example.com\nContent-Type: multipart/mixed; boundary=x\n\n--x\n\nfirst\n"
        "--x\nContent-Type: message/rfc822\n\nSubject: in\n\ninner\n--x--\n\n"
        "From b\nno header\n\nFrom c\nFrom: c@example.com\n\nlast\n";
    auto const digests = [](std::vector<nlohmann::json> const& found) {
        std::vector<std::string> texts;
        for (auto const& report : found)
            for (auto const& part : report["parts"])
                if (part["md5"].is_string()) texts.push_back(part["md5"]);
        return texts;
    };
    auto const whole = digests(readUpTo(message.size() + 1, message));
    ASSERT_EQ(whole.size(), 4U);
    for (std::size_t place = 5; place < message.size(); place += 3) {
        auto const found = readUpTo(place, message);
        ASSERT_FALSE(found.empty()) << place;
        EXPECT_EQ(found.back()["good"], false) << place;
        for (std::string const& digest : digests(found))
            EXPECT_THAT(whole, testing::Contains(digest)) << place;
    }
}

TEST(Mime, NamesTheTransferEncodingAsTheMessageDoes) {
    struct {
        char const* field;
        char const* name;
    } const rows[] = {
        {"", "7bit"},
        {"Content-Transfer-Encoding:\n", "7bit"},
        {"Content-Transfer-Encoding: gzip64\n", "gzip64"},
        {"Content-Transfer-Encoding: x-base64\n", "x-base64"},
        {"Content-Transfer-Encoding: \"base64\"\n", "\"base64\""},
        {"Content-Transfer-Encoding: Base64\n", "base64"},
        {"Content-Transfer-Encoding: 8bit\n", "8bit"},
        {"Content-Transfer-Encoding:\n x-uue\n", "x-uue"},
    };
    for (auto const& row : rows)
        EXPECT_EQ(reportOn(std::string("From: a\n") + row.field + "\n\n")["parts"][0]["encoding"], row.name)
            << row.field;
}

TEST(Mime, TakesAPartForTextWhoseContentTypeIsMalformed) {
    std::string const malformed = "a field Content-Type is malformed";
    struct {
        char const* value;
        char const* type;
        bool isGood = false;
    } const rows[] = {
        {"text", "text/plain"},
        {"html", "text/plain"},
        {"", "text/plain"},
        {";", "text/plain"},
        {"\"text/html\"", "text/plain"},
        {"text/", "text/plain"},
        {"/html", "text/plain"},
        {"octet-stream", "text/plain"},
        {"(application/octet-stream", "text/plain"},
        {"text/html", "text/html", true},
        {"text / html; charset", "text/html", true},
        {"(a (b) \\) c) text/html", "text/html", true},
        {"application/octet-stream", "application/octet-stream", true},
        {" (c) Application / Octet-Stream; x=y", "application/octet-stream", true},
    };
    for (auto const& row : rows) {
        auto const report = reportOn(std::string("From: a@example.com\nContent-Type: ") + row.value +
                                     "\n\nhttp://10.0.0.1/\n");
        EXPECT_EQ(report["parts"][0]["type"], row.type) << row.value;
        EXPECT_EQ(report["errors"], row.isGood ? Texts{} : Texts{malformed}) << row.value;
        EXPECT_EQ(report["links"].size(), std::string(row.type).starts_with("text/") ? 1U : 0U) << row.value;
    }
}

TEST(Mime, KnowsFieldsThatSayDifferentThingsAboutOneContent) {
    std::string const type = "a part has several fields Content-Type, which differ";
    std::string const encoding = "a part has several fields Content-Transfer-Encoding, which differ";
    struct {
        std::string fields;
        Texts faults;
    } const rows[] = {
        {"Content-Type: text/html\nContent-Type: text/plain\n", {type}},
        {"Content-Type: text/html\nX: y\nCONTENT-TYPE: text/html; x=y\n", {type}},
        {"Content-Type: text/html\nContent-Type: text/html\n", {}},
        {"Content-Transfer-Encoding: 7bit\nContent-Transfer-Encoding: 8bit\n", {encoding}},
        {"Content-Transfer-Encoding: 7bit\nContent-Transfer-Encoding: 7bit\n", {}},
        {"Content-Type: multipart/mixed; boundary=a\nContent-Type: multipart/mixed; boundary=b\n", {type}},
    };
    for (auto const& row : rows) {
        std::string const content = row.fields + "\n--a\n\n--a--\n--b\n\n--b--\n";
        EXPECT_EQ(reportOn("From: a@example.com\n" + content)["errors"], row.faults) << row.fields;
        EXPECT_EQ(reportOn("From: a@example.com\nContent-Type: multipart/mixed; boundary=x\n\n--x\n" +
                           content + "--x\n" + content + "--x--\n")["errors"],
                  row.faults)
            << row.fields;
    }
}
