#pragma once

#include "pstfile/Reader.h"

#include <QString>
#include <cstdint>
#include <atomic>
#include <memory>
#include <mutex>

namespace tessaly::pst {

// What every object of one opened file shares: the file, kept open while
// any of them lives, and the lock around item lookup and counting.
struct TPSTFileContext {
    std::shared_ptr<pstfile::TPstFile> File;
    std::recursive_mutex Lock;
    // Some folders were nested too deep, or in a loop, to be listed.
    std::atomic<bool> FoldersLeftOut {false};
};
using TPSTFileContextPtr = std::shared_ptr<TPSTFileContext>;

// An object of the file (the store, a folder, a message, an attachment)
// with its properties.
class TPSTItem {
public:
    TPSTItem(TPSTFileContextPtr file, uint32_t id, pstfile::TProperties props);
    virtual ~TPSTItem();
    TPSTItem(const TPSTItem&) = delete;
    TPSTItem& operator=(const TPSTItem&) = delete;

    const pstfile::TProperties& Props() const { return m_props; }
    // The node id of the object in the file; 0 for none.
    uint32_t ID() const { return m_id; }
    const TPSTFileContextPtr& FileContext() const { return m_file; }

private:
    TPSTFileContextPtr m_file;
    uint32_t m_id;
    pstfile::TProperties m_props;
};

} // namespace tessaly::pst
