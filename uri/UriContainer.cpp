#include "include2/UriSniffer"

#include <utility>

#include "uri/LinkIndex.h"

namespace Quillmark {

struct UriContainerImpl::Links {
    std::list<Uri> uris;
    LinkIndex index;  ///< the comparison strings of uris, which keeps them alive
};

UriContainerImpl::UriContainerImpl() = default;
UriContainerImpl::~UriContainerImpl() = default;

void UriContainerImpl::add(Uri const& uri, bool unique) {
    add(Uri(uri), unique);
}

void UriContainerImpl::add(Uri&& uri, bool unique) {
    if (uri.isNull() || uri.host().isNull()) return;
    std::string const& text = uri.comparisonString();
    std::unique_ptr<Links>& links = m_links[m_currentId];
    if (!links) links = std::make_unique<Links>();
    LinkIndex::Slot& slot = links->index.slotOf(text);
    if (unique && slot.text) return;
    links->uris.push_back(std::move(uri));
    if (!slot.text) links->index.fill(slot, text);
    ++m_size;
}

std::list<Uri> const& UriContainerImpl::hrefs(unsigned long /*id*/) const {
    static auto const& none =
        *new std::list<Uri>;  // never destroyed: whoever got it may look while the process ends
    auto const links = m_links.find(m_currentId);
    return links == m_links.end() || !links->second ? none : links->second->uris;
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
