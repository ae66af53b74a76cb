#pragma once

#include "pst/PSTFolder.h"

namespace tessaly::test {

// The first folder of that name, depth first from the given one.
inline pst::TPSTFolder* FindFolder(pst::TPSTFolder* folder, const QString& name)
{
    if (!folder)
        return nullptr;
    if (folder->Name() == name)
        return folder;
    for (int i = 0; i < folder->FolderCount(); ++i)
        if (auto* found = FindFolder(folder->GetFolder(i), name))
            return found;
    return nullptr;
}

} // namespace tessaly::test
