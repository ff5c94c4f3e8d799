// The last address of a header value, read from its last token to its first:
//
//     Start ---> Domain ---"@"---> LocalPart ---blank or "<"---> BeforeName ---> Name
//                  `----------"<", if the address ends in ">"--------^
//
// A comma ends the address in every state behind the "@"; in the domain it is a fault. A state is one
// function: it takes the next token to the left and names the state after it.

#include "include2/EmailAddress"
#include "mail/DomainPart.h"
#include "mail/TokenQueue.h"

namespace Quillmark {

namespace {

class HeaderGrammar {
public:
    bool read(TokenQueue& tokens, Rfc822Token const& terminator);
    bool store(EmailAddressImpl& impl, bool lowerLocal);

private:
    enum class State { Start, Domain, LocalPart, BeforeName, Name, Stopped, Failed };

    State step(State state, Rfc822Token& token);
    State start(Rfc822Token& token);
    State domain(Rfc822Token& token);
    State localPart(Rfc822Token& token);
    State beforeName(Rfc822Token& token);
    State name(Rfc822Token& token);
    static State keep(TokenQueue& queue, Rfc822Token& token, State next);

    TokenQueue m_domain, m_local, m_name;
    bool m_rightAngle = false;
};

HeaderGrammar::State HeaderGrammar::keep(TokenQueue& queue, Rfc822Token& token, State next) {
    queue.push_front(std::move(token));
    return next;
}

HeaderGrammar::State HeaderGrammar::start(Rfc822Token& token) {
    switch (symbol(token)) {
    case '>': m_rightAngle = true; return State::Domain;
    case ',':
    case '.': return State::Start;
    case ':':
    case Quoted: return State::Failed;
    default: return keep(m_domain, token, State::Domain);
    }
}

HeaderGrammar::State HeaderGrammar::domain(Rfc822Token& token) {
    switch (symbol(token)) {
    case Word:
    case Quoted:
    case Literal:
    case '.': return keep(m_domain, token, State::Domain);
    case '@': return State::LocalPart;
    case '<': return m_rightAngle ? State::BeforeName : State::Domain;
    case '>':
    case Blank:
    case LineEnd: return State::Domain;
    default: return State::Failed;
    }
}

HeaderGrammar::State HeaderGrammar::localPart(Rfc822Token& token) {
    switch (symbol(token)) {
    case '@':
    case ':': return State::Failed;
    case '<': return State::BeforeName;
    case Blank:
    case LineEnd: return m_local.empty() ? State::LocalPart : State::BeforeName;
    case ',': return State::Stopped;
    default: return keep(m_local, token, State::LocalPart);
    }
}

HeaderGrammar::State HeaderGrammar::beforeName(Rfc822Token& token) {
    switch (symbol(token)) {
    case ',': return State::Stopped;
    case Blank:
    case LineEnd: return State::BeforeName;
    default: return keep(m_name, token, State::Name);
    }
}

HeaderGrammar::State HeaderGrammar::name(Rfc822Token& token) {
    return symbol(token) == ',' ? State::Stopped : keep(m_name, token, State::Name);
}

HeaderGrammar::State HeaderGrammar::step(State state, Rfc822Token& token) {
    switch (state) {
    case State::Start: return start(token);
    case State::Domain: return domain(token);
    case State::LocalPart: return localPart(token);
    case State::BeforeName: return beforeName(token);
    case State::Name: return name(token);
    case State::Stopped:
    case State::Failed: break;
    }
    return State::Failed;
}

// Leaves the comma that ends the address, well or not: a bad address must not take its neighbour along.
bool HeaderGrammar::read(TokenQueue& tokens, Rfc822Token const& terminator) {
    State state = State::Start;
    while (!tokens.empty() && tokens.back() != terminator) {
        bool const comma = symbol(tokens.back()) == ',';
        state = step(state, tokens.back());
        bool const ended = state == State::Stopped || state == State::Failed;
        if (ended && comma) break;
        tokens.pop_back();
        if (ended) break;
    }
    return state != State::Failed;
}

bool HeaderGrammar::store(EmailAddressImpl& impl, bool lowerLocal) {
    trimWhitespaceTokens(m_domain);
    trimWhitespaceTokens(m_name);
    if (m_local.empty()) m_local.swap(m_domain);  // no "@"
    if (!m_local.empty() && !isValidLocalPart(m_local)) return false;
    std::string text;
    joinTokens(m_local, text);
    impl.local(text, lowerLocal);
    if (!m_domain.empty()) {
        text.clear();
        joinTokens(m_domain, text);
        if (!isValidDomainPart(text)) return false;
        impl.domain(text);
    }
    if (!m_name.empty()) {
        text.clear();
        joinTokens(m_name, text);
        impl.displayName(text);
    }
    return true;
}

}  // namespace

bool parseRfc5322(TokenQueue& tokens, Rfc822Token const& terminator, EmailAddressImpl* impl,
                  bool lowerLocal) {
    if (tokens.empty()) return false;
    HeaderGrammar grammar;
    trimWhitespaceTokens(tokens);
    if (!grammar.read(tokens, terminator)) return false;
    if (!grammar.store(*impl, lowerLocal)) return false;
    // What stands at the end now is the terminator or the comma that ended the address.
    if (!tokens.empty() && tokens.back() != terminator) tokens.pop_back();
    impl->asString();  // both texts are there before a second thread can ask for them
    return true;
}

}  // namespace Quillmark
