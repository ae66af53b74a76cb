#include "pst/PSTItem.h"

namespace tessaly::pst {

TPSTItem::TPSTItem(TPSTFileContextPtr file, uint32_t id, pstfile::TProperties props)
    : m_file(std::move(file)), m_id(id), m_props(std::move(props))
{
}

TPSTItem::~TPSTItem() = default;

} // namespace tessaly::pst
