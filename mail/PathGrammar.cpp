// An SMTP path, read from its last token to its first:
//
//     Start ---> Domain ---"@"---> LocalPart ---"<"---> Stopped
//                  `-----------------"<"----------------^
//
// A state is one function: it takes the next token to the left and names the state after it.

#include "include2/EmailAddress"
#include "mail/DomainPart.h"
#include "mail/TokenQueue.h"

namespace Quillmark {

namespace {

class PathGrammar {
public:
    bool read(TokenQueue& tokens);
    bool store(EmailAddressImpl& impl);

    bool hasBrackets() const noexcept { return m_rightAngle && m_leftAngle; }

private:
    enum class State { Start, Domain, LocalPart, Stopped, Failed };

    State step(State state, Rfc822Token& token);
    State start(Rfc822Token& token);
    State domain(Rfc822Token& token);
    State localPart(Rfc822Token& token);
    State leftAngle();
    static State keep(TokenQueue& queue, Rfc822Token& token, State next);

    TokenQueue m_domain, m_local;
    bool m_rightAngle = false, m_leftAngle = false;
    bool m_blankMet = false;  ///< blanks stand to the right, after which the local part must not go on
};

PathGrammar::State PathGrammar::keep(TokenQueue& queue, Rfc822Token& token, State next) {
    queue.push_front(std::move(token));
    return next;
}

PathGrammar::State PathGrammar::leftAngle() {
    if (!m_rightAngle) return State::Failed;
    m_leftAngle = true;
    return State::Stopped;
}

PathGrammar::State PathGrammar::start(Rfc822Token& token) {
    switch (symbol(token)) {
    case Word:
    case Literal: return keep(m_domain, token, State::Domain);
    case '>': m_rightAngle = true; return State::Domain;
    default: return State::Failed;
    }
}

PathGrammar::State PathGrammar::domain(Rfc822Token& token) {
    bool const nothingYet = m_domain.empty();
    switch (symbol(token)) {
    case Word:
    case Quoted:
    case Literal: return keep(m_domain, token, State::Domain);
    case '.': return nothingYet ? State::Failed : keep(m_domain, token, State::Domain);
    case '@': return nothingYet ? State::Failed : State::LocalPart;
    case Blank: return nothingYet ? State::Domain : State::Failed;
    case '<': return leftAngle();
    default: return State::Failed;  // a second ">" among them
    }
}

PathGrammar::State PathGrammar::localPart(Rfc822Token& token) {
    switch (symbol(token)) {
    case '@':
    case ':': return State::Failed;  // a source route
    case '<': return leftAngle();
    case Blank:
        if (m_local.empty()) return State::Failed;
        m_blankMet = true;
        return State::LocalPart;
    default: return m_blankMet ? State::Failed : keep(m_local, token, State::LocalPart);
    }
}

PathGrammar::State PathGrammar::step(State state, Rfc822Token& token) {
    switch (state) {
    case State::Start: return start(token);
    case State::Domain: return domain(token);
    case State::LocalPart: return localPart(token);
    case State::Stopped:
    case State::Failed: break;
    }
    return State::Failed;
}

bool PathGrammar::read(TokenQueue& tokens) {
    State state = State::Start;
    while (!tokens.empty() && state != State::Stopped && state != State::Failed) {
        state = step(state, tokens.back());
        tokens.pop_back();
    }
    return state != State::Failed && tokens.empty();  // nothing may stand before the "<"
}

bool PathGrammar::store(EmailAddressImpl& impl) {
    if (hasBrackets() && m_domain.empty()) return true;  // "<>": a bounce names nobody as its sender
    if (m_local.empty()) m_local.swap(m_domain);         // no "@"
    if (!isValidLocalPart(m_local)) return false;
    std::string text;
    joinTokens(m_local, text);
    impl.local(text, true);
    if (m_domain.empty()) return true;
    text.clear();
    joinTokens(m_domain, text);
    if (!isValidDomainPart(text)) return false;
    impl.domain(text);
    return true;
}

}  // namespace

bool parseRfc5321(TokenQueue& tokens, EmailAddressImpl* impl, bool requireBrackets) {
    trimWhitespaceTokens(tokens);
    if (tokens.empty()) return false;
    PathGrammar grammar;
    if (!grammar.read(tokens)) return false;
    if (requireBrackets && !grammar.hasBrackets()) return false;
    if (!grammar.store(*impl)) return false;
    impl->asString();  // both texts are there before a second thread can ask for them
    return true;
}

}  // namespace Quillmark
