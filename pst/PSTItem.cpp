#include "pst/PSTItem.h"

namespace tessaly::pst {

TPSTItem::TPSTItem(TPSTFileContextPtr file, TPffItemHandle item) : m_file(std::move(file)), m_item(std::move(item)) {}

TPSTItem::~TPSTItem() = default;

uint32_t TPSTItem::ID() const
{
    uint32_t id = 0;
    if (!m_item || libpff_item_get_identifier(m_item.Get(), &id, nullptr) != 1)
        return 0;
    return id;
}

} // namespace tessaly::pst
