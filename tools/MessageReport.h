#pragma once
// What was found in one message. Plain data: Examine fills it, Report and Json print it.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace QuillmarkTool {

/// One mail address, as the library's parsers read it.
struct Address {
    std::string displayName;  ///< as written, quotes and encoded words included
    std::string address;      ///< local part, "@", domain; empty for "<>"
    std::string local;
    std::string domain;
};

/// One of the header fields that hold addresses. A field that occurs twice is here twice.
struct AddressField {
    std::string name;  ///< "From", "Sender", "Reply-To", "To" or "Cc"
    std::string text;  ///< the field's value, unfolded
    std::vector<Address> addresses;
};

/// The envelope's sender, as the last mail server noted it in Return-Path.
struct Envelope {
    std::string text;
    std::optional<Address> address;  ///< nothing when the text is no path; an empty address for "<>"
};

struct PartReport {
    unsigned long id = 0;  ///< under which the part's links are kept, from 1 in order of appearance
    std::string number;    ///< where the part stands: "1", "2.1"
    std::string type;
    std::string encoding;
    std::string charset;
    std::vector<std::string> fileNames;  ///< in every reading, the likeliest first
    std::uint64_t bytes = 0;             ///< of the decoded content
    std::string md5;                     ///< of the decoded content; empty when that is incomplete
    std::string error;                   ///< why it is
};

struct LinkReport {
    std::string part;  ///< the number of the part that holds it
    std::string text;  ///< as the library gives it, with an ASCII host
    std::string idn;   ///< as written, for a link with an internationalised host; else empty
    std::string scheme;
    std::string name;  ///< the whole host name, or the address
    std::string host;  ///< what stands before the registered domain
    std::string domain;
    int port = 0;          ///< 0 when not given
    bool hasUser = false;  ///< there is user information before the host, as in "http://user@host/"
    bool ipLiteral = false;
    bool isPrivate = false;
    bool noRegisteredDomain = false;

    bool isSuspicious() const { return ipLiteral || isPrivate || noRegisteredDomain; }
};

/// What is to be done with a message.
struct VerdictReport {
    std::string action;  ///< "accept", "review" or "reject"
    unsigned int score = 0;
    std::vector<std::string> reasons;  ///< rule, score, what it was found on
    std::string by;                    ///< who judged
};

struct MessageReport {
    std::string file;        ///< "-" for standard input
    std::size_t number = 0;  ///< in its file, from 1; 0 when there is no message to count
    bool inMbox = false;
    std::string subject;  ///< encoded words decoded
    std::string date;
    std::string id;
    std::optional<Envelope> envelope;
    std::vector<AddressField> fields;
    std::vector<PartReport> parts;
    std::vector<std::string> outerNames;  ///< of what holds parts, in every reading
    std::vector<LinkReport> links;
    std::optional<VerdictReport> verdict;  ///< nothing when nobody judged
    std::vector<std::string> errors;       ///< what is bad about the message; empty for a good one

    bool isGood() const { return errors.empty(); }
};

}  // namespace QuillmarkTool
