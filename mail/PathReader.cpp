// An SMTP path, read from its first token to its last:
//
//     Start --"<"--> Opened ---> First --blank--> FirstEnded
//       `--------------------------^ `--"@"-> Domain --blank--> DomainEnded
//
// ">" leads from all of them but Start to Closed, behind which only blanks follow. First is the local
// part, or all there is when no "@" follows. parseRfc5321 reads from the other end; what it asks of a
// token in view of those to the right is asked here in view of those to the left.

#include "mail/PathReader.h"

#include "include2/EmailAddress"
#include "mail/DomainPart.h"
#include "mail/LocalPart.h"

namespace Quillmark {

namespace {

class PathReader {
public:
    void read(std::string_view text);
    bool store(EmailAddressImpl& impl, bool requireBrackets);

private:
    enum class State { Start, Opened, First, FirstEnded, Domain, DomainEnded, Closed, Failed };

    State step(Symbol symbol, std::string_view text);
    State word(Symbol symbol, std::string_view text);
    State blank();
    State at();

    State m_state = State::Start;
    Symbol m_last = Other;            ///< the last token that belongs to the address
    bool m_opened = false;            ///< "<" is there
    bool m_blankAfterOpened = false;  ///< "< a", which takes an "@"
    bool m_hasAt = false;
    std::string m_first, m_domain;
    LocalPartCheck m_check;
};

PathReader::State PathReader::word(Symbol symbol, std::string_view text) {
    m_last = symbol;
    switch (m_state) {
    case State::Start:
    case State::Opened:
    case State::First:
        m_first += text;
        m_check.take(symbol);
        return State::First;
    case State::Domain:
        m_domain += text;
        if (m_first.empty()) m_check.take(symbol);  // "@b" is the local part b
        return State::Domain;
    case State::FirstEnded:
    case State::DomainEnded:
    case State::Closed:
    case State::Failed: break;
    }
    return State::Failed;
}

PathReader::State PathReader::blank() {
    switch (m_state) {
    case State::Opened: m_blankAfterOpened = true; return State::Opened;
    case State::First: return State::FirstEnded;
    case State::Domain: return m_last == '@' ? State::Failed : State::DomainEnded;
    case State::Start:
    case State::FirstEnded:
    case State::DomainEnded:
    case State::Closed:
    case State::Failed: break;
    }
    return m_state;
}

PathReader::State PathReader::at() {
    bool const allowed = m_state == State::Start || m_state == State::First ||
                         (m_state == State::Opened && !m_blankAfterOpened);
    m_last = '@';
    m_hasAt = true;
    return allowed ? State::Domain : State::Failed;
}

PathReader::State PathReader::step(Symbol symbol, std::string_view text) {
    switch (symbol) {
    case Word:
    case Quoted:
    case Literal:
    case '.': return word(symbol, text);
    case Blank: return blank();
    case '@': return at();
    case '<': m_opened = true; return m_state == State::Start ? State::Opened : State::Failed;
    case '>': return m_state == State::Start || m_state == State::Closed ? State::Failed : State::Closed;
    default: return State::Failed;
    }
}

void PathReader::read(std::string_view text) {
    Rfc822Scan scan(text);
    while (m_state != State::Failed && scan.next()) m_state = step(scan.symbol(), scan.text());
    if (scan.failed()) m_state = State::Failed;
}

bool PathReader::store(EmailAddressImpl& impl, bool requireBrackets) {
    bool const closed = m_state == State::Closed;
    if (m_state == State::Failed || (m_opened && !closed)) return false;
    if (requireBrackets && !m_opened) return false;
    if (m_last == Other) return m_opened;  // "<>": a bounce names nobody as its sender
    if (m_last == '.' || m_last == '@' || (m_last == Quoted && !closed)) return false;
    if (m_blankAfterOpened && !m_hasAt) return false;
    if (m_first.empty()) m_first.swap(m_domain);
    if (!m_check.valid()) return false;
    impl.local(m_first, true);
    if (m_domain.empty()) return true;
    if (!isValidDomainPart(m_domain)) return false;
    impl.domain(m_domain);
    return true;
}

}  // namespace

bool readPath(std::string_view text, EmailAddressImpl& impl, bool requireBrackets) {
    PathReader reader;
    reader.read(text);
    if (!reader.store(impl, requireBrackets)) return false;
    impl.asString();  // both texts are there before a second thread can ask for them
    return true;
}

}  // namespace Quillmark
