// Chains of causes may be as long as a daemon's bad day. Nothing here follows one by calling itself.

#include "include2/Exception"

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "foundation/Fail.h"

namespace Quillmark {

namespace {

/// True when @p wanted is @p from, or a cause of it, present or former, at any depth.
bool leadsTo(ExceptionImpl const* from, ExceptionImpl const* wanted) {
    if (from == wanted) return true;
    if (!wanted->hasBeenCause) return false;  // nobody points to it: no need to look
    std::vector<ExceptionImpl const*> open{from};
    std::unordered_set<ExceptionImpl const*> seen;
    while (!open.empty()) {
        ExceptionImpl const* const record = open.back();
        open.pop_back();
        if (!record || !seen.insert(record).second) continue;
        if (record == wanted) return true;
        if (record->cause) open.push_back(record->cause->impl());
        for (auto const& former : record->formerCauses) open.push_back(former->impl());
    }
    return false;
}

void appendRecord(std::string& out, ExceptionImpl const& record) {
    out += record.title;
    out += "( ";
    out += std::to_string(record.error);
    out += " ) ";
    if (!record.fileName.empty()) {
        out += ", ";
        out += record.fileName;
    }
    if (record.lineNumber != 0) {
        out += ":";
        out += std::to_string(record.lineNumber);
        out += ", ";
    }
    if (!record.stringParameter.empty()) {
        out += " \"";
        out += record.stringParameter;
        out += '"';
    }
}

}  // namespace

ExceptionImpl::ExceptionImpl() = default;
ExceptionImpl::~ExceptionImpl() = default;

Exception::Exception(std::string const& title, int error, char const* fileName, unsigned int lineNumber) {
    auto record = std::make_unique<ExceptionImpl>();
    record->title = title;
    record->error = error;
    if (fileName) record->fileName = fileName;
    record->lineNumber = lineNumber;
    m_impl = record.release();
}

Exception::Exception(Exception const& other) noexcept : m_impl(other.m_impl) {
    if (m_impl && m_impl->count.fetch_add(1) == UINT32_MAX) std::abort();  // a leak without end
}

Exception::Exception(Exception&& other) noexcept : m_impl(std::exchange(other.m_impl, nullptr)) {}

Exception& Exception::operator=(Exception const& other) noexcept {
    Exception copy(other);  // first, so that `e = *e.cause()` works
    std::swap(m_impl, copy.m_impl);
    return *this;
}

Exception& Exception::operator=(Exception&& other) noexcept {
    Exception taken(std::move(other));
    std::swap(m_impl, taken.m_impl);
    return *this;
}

// The records that die are linked through nextDead: the causes of one are taken out of it and join
// the list, and only then is it freed.
Exception::~Exception() {
    ExceptionImpl* dead = nullptr;
    auto const letGo = [&dead](ExceptionImpl* record) {
        if (!record || record->count.fetch_sub(1) != 1) return;
        record->nextDead = dead;
        dead = record;
    };
    letGo(std::exchange(m_impl, nullptr));
    while (dead) {
        std::unique_ptr<ExceptionImpl> const record(std::exchange(dead, dead->nextDead));
        if (record->cause) letGo(std::exchange(record->cause->m_impl, nullptr));
        for (auto const& former : record->formerCauses) letGo(std::exchange(former->m_impl, nullptr));
    }
}

std::string Exception::stringParameter() const {
    return m_impl ? m_impl->stringParameter : std::string();
}

void Exception::stringParameter(std::string const& text) {
    if (m_impl) m_impl->stringParameter = text;
}

int Exception::intParameter() const {
    return m_impl ? m_impl->intParameter : 0;
}

void Exception::intParameter(int value) {
    if (m_impl) m_impl->intParameter = value;
}

std::string Exception::fileName() const {
    return m_impl ? m_impl->fileName : std::string();
}

void Exception::fileName(std::string const& name) {
    if (m_impl) m_impl->fileName = name;
}

void Exception::fileName(char const* name) {
    if (m_impl && name) m_impl->fileName = name;
}

unsigned int Exception::lineNumber() const {
    return m_impl ? m_impl->lineNumber : 0;
}

void Exception::lineNumber(unsigned int line) {
    if (m_impl) m_impl->lineNumber = line;
}

void Exception::cause(Exception const& cause) {
    if (!m_impl) return;
    if (cause.m_impl && leadsTo(cause.m_impl, m_impl)) return;
    auto copy = std::make_unique<Exception>(cause);
    // Kept for the daemons: a pointer that cause() gave before stays good when the cause changes.
    if (m_impl->cause) m_impl->formerCauses.push_back(std::move(m_impl->cause));
    if (cause.m_impl) cause.m_impl->hasBeenCause = true;
    m_impl->cause = std::move(copy);
}

Exception const* Exception::cause() const {
    return m_impl ? m_impl->cause.get() : nullptr;
}

bool Exception::hasCause() const {
    return cause() != nullptr;
}

std::string Exception::title() const {
    return m_impl ? m_impl->title : std::string();
}

int Exception::error() const noexcept {
    return m_impl ? m_impl->error : 0;
}

std::string Exception::asString() const {
    std::vector<ExceptionImpl const*> chain;
    for (ExceptionImpl const* record = m_impl; record;
         record = record->cause ? record->cause->m_impl : nullptr)
        chain.push_back(record);
    std::string text;
    std::for_each(chain.rbegin(), chain.rend(),
                  [&text](ExceptionImpl const* record) { appendRecord(text, *record); });
    return text;
}

std::ostream& operator<<(std::ostream& out, Exception const& exception) {
    std::string const text = exception.asString();
    return out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

std::ostream& operator<<(std::ostream& out, Exception& exception) {
    return out << static_cast<Exception const&>(exception);
}

std::ostream& operator<<(std::ostream& out, std::exception& exception) {
    std::string_view const text = exception.what();
    return out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

BufferException::BufferException(int error, char const* fileName, unsigned int lineNumber)
    : Exception("BufferException", error, fileName, lineNumber) {}

MediaException::MediaException(int error, char const* fileName, unsigned int lineNumber)
    : Exception("MediaException", error, fileName, lineNumber) {}

EmailAddressException::EmailAddressException(int error, char const* fileName, unsigned int lineNumber)
    : Exception("EmailAddressException", error, fileName, lineNumber) {}

SocketException::SocketException(int error, char const* fileName, unsigned int lineNumber)
    : Exception("SocketException", error, fileName, lineNumber) {}

UriException::UriException(int error, char const* fileName, unsigned int lineNumber)
    : Exception("UriException", error, fileName, lineNumber) {}

std::string errnoText(int error) {
    char text[128] = {};
    return ::strerror_r(error, text, sizeof text);
}

}  // namespace Quillmark
