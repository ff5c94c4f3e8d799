#include "include2/UriSniffer"

#include <sys/random.h>

#include <chrono>

#include "foundation/Fail.h"
#include "uri/KeyedHash.h"

namespace Quillmark {

namespace {

// One key for the life of the process. Should the system have no random bytes, the clock has to do.
HashKey makeKey() noexcept {
    KeepErrno const keepErrno;
    HashKey key{static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()), 0};
    static_cast<void>(::getentropy(&key, sizeof key));
    return key;
}

}  // namespace

UriContainerImpl::UriContainerImpl() = default;
UriContainerImpl::~UriContainerImpl() = default;

// Not noexcept: the standard library then keeps each value beside its text and hashes a text once.
std::size_t UriContainerImpl::ComparisonHash::operator()(std::string_view text) const {
    static HashKey const key = makeKey();
    return keyedHash(key, text);
}

void UriContainerImpl::add(Uri const& uri, bool unique) {
    if (uri.isNull() || uri.host().isNull()) return;
    Links& links = m_links[m_currentId];
    auto const [place, isNew] = links.index.insert(uri.comparisonString());
    if (unique && !isNew) return;
    try {
        links.uris.push_back(uri);
    } catch (...) {
        if (isNew) links.index.erase(place);  // the index holds nothing that the list does not keep alive
        throw;
    }
    ++m_size;
}

std::list<Uri> const& UriContainerImpl::hrefs(unsigned long /*id*/) const {
    static std::list<Uri> const none;
    auto const links = m_links.find(m_currentId);
    return links == m_links.end() ? none : links->second.uris;
}

UriContainer::UriContainer() : m_impl(new UriContainerImpl, false) {}

void UriContainer::add(Uri const& uri, bool unique) {
    m_impl->add(uri, unique);
}

std::list<Uri> const& UriContainer::hrefs(unsigned long id) const {
    return m_impl->hrefs(id);
}

std::size_t UriContainer::size() const {
    return m_impl->size();
}

unsigned long UriContainer::currentId() const {
    return m_impl->currentId();
}

void UriContainer::currentId(unsigned long id) {
    m_impl->currentId(id);
}

bool UriContainer::sourced() const {
    return m_impl->sourced();
}

}  // namespace Quillmark
