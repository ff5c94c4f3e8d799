#pragma once
// What the commands for one value find out. Plain data, printed for people by Show and for programs by Json.

#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "include2/Resolver"
#include "tools/MessageReport.h"

namespace QuillmarkTool {

struct AddressFacts {
    std::string text;
    std::vector<Address> header;      ///< read as a header field
    std::optional<Address> envelope;  ///< read as an envelope's path
};

struct UriFacts {
    std::string text;
    std::string error;  ///< not empty: this is no URI, and nothing below is filled
    LinkReport link;
    std::string user;
    std::string password;
    std::string path;
    std::string query;
    std::string fragment;
    std::string canonical;
    std::vector<std::string> addresses;                        ///< of a mailto link
    std::vector<std::pair<std::string, std::string>> headers;  ///< of a mailto link
};

struct LinksFacts {
    std::vector<LinkReport> links;
};

struct HostFacts {
    std::string text;
    bool valid = false;  ///< false: nothing below is filled
    std::string name;
    std::string idn;  ///< with its internationalised letters; empty for a plain name
    std::string host;
    std::string domain;
    bool ipLiteral = false;
    bool publicSuffix = false;
};

struct IpFacts {
    std::string text;
    std::string error;               ///< not empty: this is no address, and nothing below is filled
    int version = 0;                 ///< 4 or 6
    std::string address;             ///< of a network: its address as written
    int prefixLength = -1;           ///< of a network; -1 for a single address
    std::string reversed;            ///< the order in which reverse look-ups ask
    std::string ipv4;                ///< the IPv4 address that an IPv6 address carries
    std::vector<std::string> kinds;  ///< "private", "loopback", ...
};

struct DnsFacts {
    std::string name;  ///< as it was asked for
    int type = 0;      ///< as on the wire
    int recordClass = 0;
    Quillmark::ResolverMessage message;
    bool truncated = false;  ///< also where nothing of the answer is left
};

}  // namespace QuillmarkTool
