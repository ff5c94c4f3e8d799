#include "uri/LinkIndex.h"

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

// Linear probing: a hash of 64 bits is rarely another text's, and the slots looked at are beside each other.
LinkIndex::Slot& LinkIndex::slotOf(std::string_view text) {
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

void LinkIndex::grow() {
    std::size_t const times = m_slots.size() < spareSlots ? 4 : 2;
    decltype(m_slots) former(std::max(firstSlots, m_slots.size() * times));
    m_slots.swap(former);
    std::size_t const mask = m_slots.size() - 1;
    for (Slot const& slot : former) {
        if (!slot.text) continue;
        std::size_t at = slot.hash & mask;
        while (m_slots[at].text) at = (at + 1) & mask;
        m_slots[at] = slot;
    }
}

}  // namespace Quillmark
