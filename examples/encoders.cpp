// A small message: folded header, quoted-printable body, and a scrambled copy beside it.
#include <include2/BufferMedia>
#include <include2/EncoderMedia>
#include <include2/Obfuscator>
#include <include2/Time>

#include <iostream>
#include <string>

using namespace Quillmark;

int main() {
    Buffer message;
    BufferMediaOut memory(message);
    Buffer scrambled;
    BufferMediaOut archive(scrambled);
    LightweightObfuscator scrambler(archive, 90);
    TeeMediaOut both(memory, scrambler);  // what is written goes to both

    both << std::string("Date: ") << std::string(Time::then(1774729800, false).asCstring())
         << std::string("\n");
    HeaderMediaOut header(both);
    std::string report = "X-Report:";
    for (int rule = 1; rule <= 20; ++rule) report += " rule" + std::to_string(rule) + "=0";
    header << report;  // folded after each 128 bytes, wherever that is
    both << std::string("\nContent-Transfer-Encoding: quoted-printable\n\n");
    QuotedPrintableOut body(both);
    body << std::string(
        "caf\xc3\xa9 = coffee, and a line that is too long for seventy-six characters of mail\n");
    std::cout << message.c_str();

    // The same seed turns the copy back.
    Buffer plain;
    BufferMediaOut out(plain);
    LightweightObfuscator back(out, 90);
    back << scrambled;
    std::cout << "the scrambled copy " << (scrambled == message ? "is the same" : "reads differently")
              << ", and " << (plain == message ? "turns back\n" : "is lost\n");
}
