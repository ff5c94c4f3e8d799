#include "include2/UriSniffer"

#include <sys/random.h>

#include <algorithm>
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

// Linear probing: a hash of 64 bits that is rarely another text's, and slots beside each other.
UriContainerImpl::Index::Slot& UriContainerImpl::Index::slotOf(std::string_view text) {
    static HashKey const key = makeKey();
    if (m_filled >= m_slots.size() / 4 * 3) grow();
    std::uint64_t const hash = keyedHash(key, text);
    std::size_t const mask = m_slots.size() - 1;
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
        Slot& slot = m_slots[at];
        if (!slot.text) slot.hash = hash;
        if (!slot.text || (slot.hash == hash && *slot.text == text)) return slot;
    }
}

void UriContainerImpl::Index::fill(Slot& slot, std::string const& text) noexcept {
    slot.text = &text;
    ++m_filled;
}

void UriContainerImpl::Index::grow() {
    std::vector<Slot> former(std::max<std::size_t>(16, m_slots.size() * 2));
    m_slots.swap(former);
    std::size_t const mask = m_slots.size() - 1;
    for (Slot const& slot : former) {
        if (!slot.text) continue;
        std::size_t at = slot.hash & mask;
        while (m_slots[at].text) at = (at + 1) & mask;
        m_slots[at] = slot;
    }
}

void UriContainerImpl::add(Uri const& uri, bool unique) {
    if (uri.isNull() || uri.host().isNull()) return;
    std::string const& text = uri.comparisonString();
    Links& links = m_links[m_currentId];
    Index::Slot& slot = links.index.slotOf(text);
    if (unique && slot.text) return;
    links.uris.push_back(uri);
    if (!slot.text) links.index.fill(slot, text);
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
