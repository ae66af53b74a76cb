#pragma once

// Keeps the captions of the loaded data files unique: files that share a
// caption get " (N)" with their number, or " (directory)" without one.

#include <QHash>
#include <QString>
#include <vector>

namespace tessaly::pst {
class TPSTFile;
}

namespace tessaly::app {

class TPSTCaption {
public:
    void Add(pst::TPSTFile* file, int number);
    // Gives the rest of the file's group their captions again.
    void Remove(pst::TPSTFile* file);
    // Writes the display caption of every registered file.
    void MakeUnique();
    bool Contains(const pst::TPSTFile* file) const;

private:
    struct TEntry {
        pst::TPSTFile* File;
        int Number;
    };
    void Apply(const std::vector<TEntry>& group) const;
    QHash<QString, std::vector<TEntry>> m_groups;
};

} // namespace tessaly::app
