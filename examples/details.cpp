// What an attachment's name is held against, and what a classifier has to say of it.
#include <include2/ClassifierDetail>
#include <include2/PatternContainer>
#include <include2/StringContainer>
#include <include2/TypeAndValue>

#include <iostream>
#include <string>
#include <utility>

using namespace Quillmark;

namespace {

class BadName : public ClassifierDetailImpl {
public:
    explicit BadName(std::string name) : m_name(std::move(name)) {}
    bool isVirus() const override { return true; }
    std::string toString(unsigned char /*selector*/) const override { return "attachment " + m_name; }

private:
    std::string m_name;
};

}  // namespace

int main() {
    PatternContainer programs;
    for (char const* pattern : {"*.scr", "*.exe", "*.doc?"}) programs.add(pattern);

    StringContainer found;  // copies share it, so that a function can be handed one to fill
    ClassifierDetail detail;
    for (char const* name : {"holiday.jpg", "Invoice.EXE"}) {
        TypeAndValue const parameter("filename", name);
        std::string const* pattern = nullptr;
        if (!programs.match(parameter.value(), &pattern)) continue;
        found.add(parameter.type() + "=" + parameter.value() + " matches " + *pattern);
        detail = ClassifierDetail(new BadName(parameter.value()), false);
    }
    for (std::string const& text : found.values()) std::cout << text << '\n';
    std::cout << detail.toString(0) << (detail.isVirus() ? ", taken for a virus\n" : "\n");
}
