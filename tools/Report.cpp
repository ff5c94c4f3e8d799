#include "tools/Report.h"

#include <algorithm>

#include "tools/Words.h"

namespace QuillmarkTool {
namespace {

constexpr std::size_t labelColumns = 10;
// Columns grow with what stands in them, up to here: one long name shall not push a whole table away.
constexpr std::size_t widestColumn = 34;

/// Lines under one label, which stands on the first of them.
class Block {
public:
    Block(std::string& out, Painter const& paint, std::string const& label)
        : m_out(out), m_paint(paint), m_label(label) {}
    void line(std::string const& text) {
        std::string const label = padded(m_label, labelColumns);
        m_out += "  " + (m_label.empty() ? label : m_paint(Style::Label, label)) + " " + text + "\n";
        m_label.clear();
    }

private:
    std::string& m_out;
    Painter const& m_paint;
    std::string m_label;
};

std::string nameAndAddress(Address const& address, Painter const& paint) {
    std::string const shown = paint(Style::Strong, harmless(address.address));
    std::string const name = harmless(decodedText(address.displayName));
    return name.empty() ? shown : name + " <" + shown + ">";
}

std::string envelopeText(Envelope const& envelope, Painter const& paint) {
    if (!envelope.address) return paint(Style::Warning, "no path: " + harmless(envelope.text));
    if (envelope.address->address.empty()) return "<> " + paint(Style::Quiet, "nobody: this is a bounce");
    return paint(Style::Strong, harmless(envelope.address->address));
}

void writeFields(std::string& out, MessageReport const& report, Painter const& paint) {
    for (AddressField const& field : report.fields) {
        Block block(out, paint, field.name);
        if (field.addresses.empty()) block.line(paint(Style::Warning, "no address: " + harmless(field.text)));
        for (Address const& address : field.addresses) block.line(nameAndAddress(address, paint));
    }
}

/// The widest of the texts, as far as a column grows.
template <class List, class Text>
std::size_t columnFor(List const& list, Text text) {
    std::size_t widest = 0;
    for (auto const& item : list) widest = std::max(widest, columnsOf(text(item)));
    return std::min(widest, widestColumn);
}

void writeParts(std::string& out, MessageReport const& report, Painter const& paint) {
    auto const number = [](PartReport const& part) { return part.number; };
    auto const type = [](PartReport const& part) { return harmless(part.type); };
    auto const encoding = [](PartReport const& part) { return harmless(part.encoding); };
    auto const size = [](PartReport const& part) { return bytesForPeople(part.bytes); };
    std::size_t const numbers = columnFor(report.parts, number);
    std::size_t const types = columnFor(report.parts, type);
    std::size_t const encodings = columnFor(report.parts, encoding);
    std::size_t const sizes = columnFor(report.parts, size);
    Block block(out, paint, "Parts");
    for (PartReport const& part : report.parts) {
        std::string const bytes = size(part);
        std::string line = padded(number(part), numbers) + "  " + padded(type(part), types) + "  " +
                           paint(Style::Quiet, padded(encoding(part), encodings)) + "  " +
                           std::string(sizes - std::min(sizes, bytes.size()), ' ') + bytes + "  ";
        line += part.error.empty() ? paint(Style::Quiet, part.md5)
                                   : paint(Style::Error, padded("incomplete", 32));
        for (std::string const& name : part.fileNames)
            line += &name == part.fileNames.data() ? "  " + harmless(name) : " (also " + harmless(name) + ")";
        block.line(line);
    }
}

std::string shownDomain(LinkReport const& link) {
    return harmless(link.domain.empty() ? link.name : link.domain);
}

std::string besideDomain(LinkReport const& link) {
    std::string const remarks = remarksOn(link);
    return remarks.empty() ? harmless(link.host) : remarks;
}

void writeLinks(std::string& out, MessageReport const& report, Painter const& paint) {
    auto const part = [](LinkReport const& link) { return link.part; };
    std::size_t const parts = columnFor(report.links, part);
    std::size_t const domains = columnFor(report.links, shownDomain);
    std::size_t const hosts = columnFor(report.links, besideDomain);
    Block block(out, paint, "Links");
    for (LinkReport const& link : report.links) {
        Style const style = link.isSuspicious() ? Style::Warning : Style::Strong;
        Style const beside = link.isSuspicious() ? Style::Warning : Style::Plain;
        block.line(padded(link.part, parts) + "  " + paint(style, padded(shownDomain(link), domains)) + "  " +
                   paint(beside, padded(besideDomain(link), hosts)) + "  " + harmless(link.text));
        if (link.idn.empty()) continue;
        std::string const indent(parts + 2 + domains + 2 + hosts + 2, ' ');
        block.line(indent + paint(Style::Quiet, "written " + harmless(link.idn)));
    }
}

void writeVerdict(std::string& out, VerdictReport const& verdict, Painter const& paint) {
    Style const style = verdict.action == "accept"   ? Style::Plain
                        : verdict.action == "review" ? Style::Warning
                                                     : Style::Error;
    Block block(out, paint, "Verdict");
    block.line(paint(style, verdict.action) + ", score " + std::to_string(verdict.score));
    for (std::string const& reason : verdict.reasons) block.line(harmless(reason));
}

}  // namespace

void Totals::add(MessageReport const& report) {
    if (report.verdict && report.verdict->action == "review") ++review;
    if (report.verdict && report.verdict->action == "reject") ++reject;
    if (report.number != 0) ++messages;
    if (!report.isGood()) ++bad;
    parts += report.parts.size();
    links += report.links.size();
    for (LinkReport const& link : report.links) {
        if (link.ipLiteral) ++ipLiterals;
        if (link.isPrivate) ++privates;
        if (link.noRegisteredDomain) ++withoutDomain;
    }
}

void Totals::add(Totals const& more) {
    for (std::size_t Totals::*const count :
         {&Totals::messages, &Totals::bad, &Totals::parts, &Totals::links, &Totals::ipLiterals,
          &Totals::privates, &Totals::withoutDomain, &Totals::review, &Totals::reject, &Totals::skipped})
        this->*count += more.*count;
}

std::string remarksOn(LinkReport const& link) {
    if (link.isPrivate) return "private IP address";
    if (link.ipLiteral) return "IP address";
    if (link.noRegisteredDomain) return "no registered domain";
    return {};
}

std::string labelled(std::string const& label, std::string const& value, Painter const& paint) {
    std::string out;
    Block(out, paint, label).line(value);
    return out;
}

std::string reportOf(MessageReport const& report, Painter const& paint) {
    std::string out = paint(Style::Title, report.file == "-" ? "standard input" : harmless(report.file));
    if (report.inMbox && report.number != 0)
        out += paint(Style::Quiet, ", message " + std::to_string(report.number));
    out += "\n";
    if (!report.subject.empty())
        out += labelled("Subject", paint(Style::Strong, harmless(report.subject)), paint);
    if (!report.date.empty()) out += labelled("Date", harmless(report.date), paint);
    if (report.envelope) out += labelled("Envelope", envelopeText(*report.envelope, paint), paint);
    writeFields(out, report, paint);
    writeParts(out, report, paint);
    writeLinks(out, report, paint);
    if (report.verdict) writeVerdict(out, *report.verdict, paint);
    Block errors(out, paint, "Error");
    for (std::string const& error : report.errors) errors.line(paint(Style::Error, harmless(error)));
    return out + "\n";
}

std::string reportOf(Totals const& totals, Painter const& paint) {
    std::string out;
    if (!totals.judge.empty())
        out = "Judged by " + harmless(totals.judge) + ": " + std::to_string(totals.review) + " to review, " +
              std::to_string(totals.reject) + " to reject.\n";
    out += counted(totals.messages, "message", "messages") + ", " + counted(totals.parts, "part", "parts") +
           ", " + counted(totals.links, "link", "links");
    std::string remarks;
    if (totals.ipLiterals != 0) {
        remarks += ": " + std::to_string(totals.ipLiterals) + " to bare IP addresses";
        if (totals.privates != 0) remarks += " (" + std::to_string(totals.privates) + " of them private)";
    }
    if (totals.withoutDomain != 0) {
        remarks += (remarks.empty() ? ": " : ", ") + std::to_string(totals.withoutDomain) +
                   " without a registered domain";
    }
    out += paint(Style::Warning, remarks) + ".";
    if (totals.skipped != 0)
        out += " " + counted(totals.skipped, "file that is", "files that are") + " no mail passed over.";
    if (totals.bad != 0)
        out += " " + paint(Style::Error, std::to_string(totals.bad) + " bad, see the lines \"Error\".");
    return out + "\n";
}

}  // namespace QuillmarkTool
