#pragma once

#include "pst/PffHandle.h"

#include <QString>
#include <cstdint>
#include <memory>
#include <mutex>

namespace tessaly::pst {

// What every object of one opened file shares: the libpff file, kept open
// while any of them lives, and the lock around item lookup and counting.
struct TPSTFileContext {
    TPffFileHandle Handle;
    std::recursive_mutex Lock;
};
using TPSTFileContextPtr = std::shared_ptr<TPSTFileContext>;

// An object over one libpff item, which it owns.
class TPSTItem {
public:
    TPSTItem(TPSTFileContextPtr file, TPffItemHandle item);
    virtual ~TPSTItem();
    TPSTItem(const TPSTItem&) = delete;
    TPSTItem& operator=(const TPSTItem&) = delete;

    libpff_item_t* Handle() const { return m_item.Get(); }
    // The libpff identifier (descriptor) of the item; 0 when unreadable.
    uint32_t ID() const;
    const TPSTFileContextPtr& FileContext() const { return m_file; }

protected:
    // Swaps the libpff item for another (a folder resetting its cache).
    void ReplaceHandle(TPffItemHandle item) { m_item = std::move(item); }

private:
    TPSTFileContextPtr m_file;  // declared first: outlives the item handle
    TPffItemHandle m_item;
};

} // namespace tessaly::pst
