#include "tools/Counting.h"

#include <exception>

#include "include2/Exception"

namespace QuillmarkTool {

// What fails here fails in the scan as well, and that one says so. What fails here alone, for want of memory or of
// a descriptor, is no reason to end it.
void Counting::run() {
    try {
        m_find(*this);
        if (!m_isOver) m_progress.total(m_bytes);
    } catch (UnreadableList const&) {
    } catch (Quillmark::Exception const&) {
    } catch (std::exception const&) {
    }
}

bool Counting::take(Source source) {
    m_bytes += source.bytes;
    return !m_isOver;
}

}  // namespace QuillmarkTool
