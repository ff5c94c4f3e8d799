// quillmark dns beside kdig: both ask one name server, and their answers are compared.

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <memory>
#include <utility>

#include "include2/Resolver"
#include "tests/net/RealDnsServer.h"
#include "tests/tools/Tool.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using Json = nlohmann::json;

namespace {

constexpr char const* addresses[] = {"127.0.0.1", "::1"};

/// A name or text of a zone file as bytes.
std::string unescaped(std::string const& text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
        } else if (text.at(i + 1) >= '0' && text[i + 1] <= '9') {
            bytes += static_cast<char>(std::stoi(text.substr(i + 1, 3)));
            i += 3;
        } else {
            bytes += text[++i];
        }
    }
    return bytes;
}

/// Without the dot that ends it, as we have it.
std::string nameOf(std::string text) {
    text.pop_back();
    return unescaped(text);
}

std::vector<std::string> words(std::string const& text) {
    std::vector<std::string> result(1);
    for (char const c : text)
        if (c == ' ')
            result.emplace_back();
        else
            result.back() += c;
    return result;
}

std::string inLowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

/// The strings of a text record, joined; both in hexadecimal.
std::string joined(std::string const& rdata) {
    std::string text;
    for (std::size_t i = 0; i < rdata.size(); i += 2 * (1 + std::stoul(rdata.substr(i, 2), nullptr, 16)))
        text += rdata.substr(i + 2, 2 * std::stoul(rdata.substr(i, 2), nullptr, 16));
    return text;
}

std::string number(Json const& value) {
    return std::to_string(value.get<std::uint64_t>());
}

/// What a record holds, by its type: kdig's record first, then ours.
std::string dataOfKdig(Json const& record) {
    std::string const rdata = inLowerCase(record.value("RDATAHEX", ""));  // none where it is empty
    int const type = record["TYPE"];
    std::string const key = "rdata" + record["TYPEname"].get<std::string>();
    switch (type) {
    case 1:
    case 28: return record[key];
    case 2:
    case 5:
    case 12: return nameOf(record[key]);
    case 15: {
        std::vector<std::string> const fields = words(record[key]);
        return fields.at(0) + " " + nameOf(fields.at(1));
    }
    case 6: {
        std::vector<std::string> fields = words(record[key]);
        std::string text = nameOf(fields.at(0)) + " " + nameOf(fields.at(1));
        for (std::size_t i = 2; i < 7; ++i) text += " " + fields.at(i);
        return text;
    }
    case 16: return joined(rdata) + " of " + rdata;
    default: return rdata;
    }
}

std::string dataOf(Json const& record) {
    switch (record["type_number"].get<int>()) {
    case 1:
    case 2:
    case 5:
    case 12:
    case 28: return record["value"];
    case 15: return number(record["mx_rank"]) + " " + record["value"].get<std::string>();
    case 6: {
        Json const& soa = record["soa"];
        std::string text = soa["mname"].get<std::string>() + " " + soa["rname"].get<std::string>();
        for (char const* field : {"serial", "refresh", "retry", "expire", "minimum"})
            text += " " + number(soa[field]);
        return text;
    }
    case 16: {
        // JSON holds no bytes that are no text; where there are some, only the record as it came is compared.
        std::string const rdata = record["rdata"];
        std::string const value = record["value"];
        bool const isText = std::all_of(value.begin(), value.end(), [](char c) { return c >= ' '; });
        return (isText ? hex(value) : joined(rdata)) + " of " + rdata;
    }
    default: return record["rdata"];
    }
}

/// The entries of a section as lines, in one order.
template <class Write>
std::string section(char const* title, Json const& records, Write write) {
    std::vector<std::string> lines;
    for (Json const& record : records) lines.push_back(write(record));
    std::sort(lines.begin(), lines.end());
    std::string text = std::string(title) + ":\n";
    for (std::string const& line : lines) text += " " + line + "\n";
    return text;
}

/// What a program said, in words that are the same for both.
std::string answerOfKdig(Ran const& ran) {
    if (ran.status != 0) return "kdig: " + ran.err;
    Json const reply = Json::parse(ran.out);
    bool const found = reply["RCODE"] == 0 && reply["ANCOUNT"] != 0;
    std::string text = std::string("truncated ") + (reply["TC"] == 1 ? "true" : "false") + "\n";
    if (!found) {
        // As the C library numbers them.
        int const code = reply["RCODE"] == 3 ? 1 : reply["RCODE"] == 0 ? 4 : 2;
        return text + "failed " + std::to_string(code) + "\n";
    }
    auto const record = [](Json const& entry) {
        return nameOf(entry["NAME"]) + " " + number(entry["TTL"]) + " " + number(entry["CLASS"]) + " " +
               number(entry["TYPE"]) + " " + dataOfKdig(entry);
    };
    text += std::string("authoritative ") + (reply["AA"] == 1 ? "true" : "false") + "\n";
    text += "question: " + nameOf(reply["QNAME"]) + " " + number(reply["QCLASS"]) + " " +
            number(reply["QTYPE"]) + "\n";
    text += section("answers", reply.value("answerRRs", Json::array()), record);
    text += section("name servers", reply.value("authorityRRs", Json::array()), record);
    return text + section("additional", reply.value("additionalRRs", Json::array()), record);
}

std::string answerOf(Ran const& ran) {
    if (ran.out.empty()) return "quillmark: " + ran.err;
    Json const reply = Json::parse(ran.out);
    std::string text = std::string("truncated ") + (reply["truncated"] == true ? "true" : "false") + "\n";
    if (!reply["error"].is_null()) return text + "failed " + number(reply["error"]["code"]) + "\n";
    auto const record = [](Json const& entry) {
        return entry["name"].get<std::string>() + " " + number(entry["ttl"]) + " " +
               number(entry["class_number"]) + " " + number(entry["type_number"]) + " " + dataOf(entry);
    };
    text += std::string("authoritative ") + (reply["authoritative"] == true ? "true" : "false") + "\n";
    for (Json const& query : reply["queries"])
        text += "question: " + query["name"].get<std::string>() + " " + number(query["class_number"]) + " " +
                number(query["type_number"]) + "\n";
    text += section("answers", reply["answers"], record);
    text += section("name servers", reply["name_servers"], record);
    return text + section("additional", reply["additional"], record);
}

/// One server for all tests of a program.
class DnsBesideKdig : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<RealDnsServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    /// Has both ask the server at an address. Neither asks twice, over TCP or for more room.
    static std::pair<std::string, std::string> answers(std::string const& address,
                                                       std::vector<std::string> ours,
                                                       std::vector<std::string> kdigs) {
        std::string const port = std::to_string(s_server->port());
        ours.insert(ours.begin(), {"dns", "--json", "--server", address, "--port", port});
        kdigs.insert(kdigs.begin(),
                     {"@" + address, "-p", port, "+json", "+noedns", "+ignore", "+timeout=20", "+retry=0"});
        Surroundings patient;
        patient.environment = {{"RES_OPTIONS", "timeout:20 attempts:1"}};
        Surroundings kdig;
        kdig.program = "/usr/bin/kdig";
        // A name is the same in capitals, and kdig has none.
        return {inLowerCase(answerOf(quillmark(ours, patient))),
                inLowerCase(answerOfKdig(quillmark(kdigs, kdig)))};
    }

private:
    static std::unique_ptr<RealDnsServer> s_server;
};

std::unique_ptr<RealDnsServer> DnsBesideKdig::s_server;

}  // namespace

TEST_F(DnsBesideKdig, FindsTheSameRecordsOfEveryType) {
    // Whatever can stand beside other records, by the name that we have for it.
    int types = 0;
    for (int type = 1; type <= 0xffff; ++type) {
        std::string const name = Resolver::recordTypeName(type);
        bool const isQuestion = (type >= 249 && type <= 256) || name == "OPT";
        bool const isAlone = name == "NS" || name == "CNAME" || name == "SOA";
        bool const isProof = name == "NSEC3";
        if (isProof || name == "Unknown" || isQuestion || isAlone) continue;
        ++types;
        auto const [ours, kdigs] = answers(addresses[types % 2], {"all.quill.example", name},
                                           {"all.quill.example", "TYPE" + std::to_string(type)});
        EXPECT_EQ(ours, kdigs) << name;
        EXPECT_THAT(ours, testing::HasSubstr(" " + std::to_string(type) + " ")) << name;
        EXPECT_THAT(ours, testing::Not(testing::HasSubstr("failed"))) << name;
    }
    EXPECT_EQ(types, 63 - 8 - 1 - 3 - 1);
}

TEST_F(DnsBesideKdig, FindsTheSameWithNamesOfEveryKind) {
    struct {
        char const* name;
        char const* type;
    } const rows[] = {
        {"quill.example", "NS"},
        {"quill.example", "SOA"},
        {"quill.example", "MX"},
        {"host.quill.example", "A"},
        {"HOST.Quill.Example.", "AAAA"},
        {"six.quill.example", "AAAA"},
        {"old.quill.example", "A"},
        {"www.quill.example", "A"},
        {"www.quill.example", "AAAA"},
        {"www.quill.example", "CNAME"},
        {"away.quill.example", "A"},
        {"round.quill.example", "A"},
        {"a.b.wild.quill.example", "TXT"},
        {"leaf.tree.quill.example", "A"},
        {"dot\\.ted.quill.example", "A"},
        {"mail.quill.example", "MX"},
        {"nomail.quill.example", "MX"},
        {"spf.quill.example", "TXT"},
        {"long.quill.example", "TXT"},
        {"empty.quill.example", "TXT"},
        {"raw.quill.example", "TXT"},
        {"_sip._udp.quill.example", "SRV"},
        {"odd.quill.example", "TYPE65400"},
        {"nothing.quill.example", "TYPE65400"},
        {"all.quill.example", "TYPE257"},
        {"all.quill.example", "TYPE52"},
        {"six.quill.example", "TYPE255"},
        // Without an answer: no such name, no such records, another's, refused, too large.
        {"none.quill.example", "A"},
        {"host.quill.example", "TXT"},
        {"host.sub.quill.example", "A"},
        {"elsewhere.example", "A"},
        {"large.quill.example", "TXT"},
    };
    for (char const* address : addresses)
        for (auto const& [name, type] : rows) {
            auto const [ours, kdigs] = answers(address, {name, type}, {name, type});
            EXPECT_EQ(ours, kdigs) << name << " " << type << " " << address;
        }
}

TEST_F(DnsBesideKdig, FindsTheSameInOtherClasses) {
    for (char const* address : addresses) {
        auto const [ours, kdigs] = answers(address, {"version.server", "TXT", "--class", "CH"},
                                           {"version.server", "TXT", "-c", "CH"});
        EXPECT_EQ(ours, kdigs);
        EXPECT_THAT(ours, testing::HasSubstr("version.server 0 3 16 "));
    }
}

TEST_F(DnsBesideKdig, FindsTheSameForAddresses) {
    for (char const* address : addresses)
        for (char const* host : {"192.0.2.1", "192.0.2.2", "192.0.2.3", "192.0.2.9", "198.51.100.1",
                                 "2001:db8::1", "2001:db8::2", "::1"}) {
            auto const [ours, kdigs] = answers(address, {"-x", host}, {"-x", host});
            EXPECT_EQ(ours, kdigs) << host << " " << address;
        }
}
