#include "pst/PSTItem.h"

namespace tessaly::pst {

TPSTItem::TPSTItem(TPSTFileContextPtr file, TPffItemHandle item) : m_file(std::move(file)), m_item(std::move(item)) {}

// Freeing touches the file's shared caches: done under the file's lock, as
// lookups are.
TPSTItem::~TPSTItem()
{
    if (m_file) {
        std::lock_guard lock(m_file->Lock);
        m_item.Reset();
    }
}

uint32_t TPSTItem::ID() const
{
    uint32_t id = 0;
    if (!m_item || libpff_item_get_identifier(m_item.Get(), &id, nullptr) != 1)
        return 0;
    return id;
}

} // namespace tessaly::pst
