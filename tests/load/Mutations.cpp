#include "tests/load/Mutations.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace QuillmarkLoad {
namespace {

template <class Choices>
std::string_view oneOf(Choices const& choices, Random& random) {
    return choices[random() % choices.size()];
}

constexpr std::array<std::string_view, 8> addresses = {
    "ann@example.org",
    "\"Ben (the other)\" <ben@mail.example.com>",
    "Group: cleo@example.net, dan@example.org;",
    "=?utf-8?B?w4ZvbnM=?= <aeons@example.com>",
    "<\"a b\"@example.org>",
    "undisclosed-recipients:;",
    "eve@[192.0.2.1] (at home (or not))",
    "fred@xn--bcher-kva.example.com, , gus@example.co.uk",
};

constexpr std::array<std::string_view, 8> links = {
    "http://www.example.com/a%20b?c=d#e",
    "https://user:pw@192.168.1.1:8080/login",
    "http://0x7f000001/",
    "www.example.org",
    "mailto:ann@example.org?subject=x%0Ay",
    "http://xn--80ak6aa92e.com/",
    "http://[2001:db8::1]/index.html",
    "ftp://example.net/pub;type=i",
};

constexpr std::array<std::string_view, 12> oddities = {
    "From ", "\n\n",           "\n.\n",    "--",
    "=\n",   "=3D=00=\r\n",    "\xff\xfe", "\xf0\x9f\x93\xa7",
    "<!--",  "http://http://", "((((((((", "Content-Type: multipart/mixed; boundary=\"\"\n",
};

constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string text(Random& random) {
    std::string lines;
    for (unsigned long line = 0, count = 1 + random() % 12; line < count; ++line) {
        lines += "line ";
        lines += std::to_string(random());
        lines += random() % 3 == 0 ? ' ' : ',';
        lines += oneOf(links, random);
        lines += '\n';
    }
    return lines;
}

std::string base64(Random& random) {
    std::string lines;
    for (unsigned long line = 0, count = 1 + random() % 200; line < count; ++line) {
        for (int i = 0; i < 76; ++i) lines += letters[random() % letters.size()];
        lines += "\r\n";
    }
    return lines;
}

std::string part(Random& random, int depth);

std::string multipart(Random& random, int depth) {
    std::string const boundary = "b" + std::to_string(random());
    std::string whole = "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\n\n";
    for (unsigned long i = 0, count = 1 + random() % 4; i < count; ++i)
        whole += "--" + boundary + "\n" + part(random, depth + 1);
    return whole + "--" + boundary + "--\n";
}

std::string part(Random& random, int depth) {
    switch (random() % (depth < 4 ? 6 : 4)) {
    case 0: return "Content-Type: text/plain; charset=iso-8859-1\n\n" + text(random);
    case 1: return "Content-Type: text/html\nContent-Transfer-Encoding: quoted-printable\n\n" + text(random);
    case 2:
        return "Content-Type: application/octet-stream; name=\"a.exe\"\nContent-Transfer-Encoding: "
               "base64\n\n" +
               base64(random);
    case 3:
        return "Content-Type: text/plain; charset=utf-16\nContent-Transfer-Encoding: base64\n\n" +
               base64(random);
    case 4: return "Content-Type: message/rfc822\n\n" + wholeMessage(random);
    default: return multipart(random, depth);
    }
}

}  // namespace

std::string wholeMessage(Random& random) {
    std::string whole;
    for (char const* field : {"Return-Path: ", "From: ", "Sender: ", "To: ", "Cc: "}) {
        if (random() % 4 == 0) continue;
        whole += field;
        whole += oneOf(addresses, random);
        whole += '\n';
    }
    whole += "Subject: =?iso-8859-1?Q?caf=E9_" + std::to_string(random()) + "?=\n";
    return whole + (random() % 3 == 0 ? "\n" + text(random) : multipart(random, 0));
}

std::string brokenMessage(Random& random) {
    std::string bytes = wholeMessage(random);
    for (unsigned long i = 0, count = random() % 12; i < count && !bytes.empty(); ++i) {
        std::size_t const at = random() % bytes.size();
        std::size_t const length = std::min<std::size_t>(random() % 400, bytes.size() - at);
        switch (random() % 7) {
        case 0: bytes[at] = static_cast<char>(random()); break;
        case 1: bytes.erase(at, length); break;
        case 2: bytes.insert(random() % bytes.size(), bytes.substr(at, length)); break;
        case 3: bytes.insert(at, oneOf(oddities, random)); break;
        case 4: bytes.insert(at, std::string(random() % 2000, static_cast<char>(random()))); break;
        case 5:
            std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                         bytes.begin() + static_cast<std::ptrdiff_t>(at + length));
            break;
        default:
            if (random() % 4 == 0) bytes.resize(at);
            break;
        }
    }
    return bytes;
}

}  // namespace QuillmarkLoad
