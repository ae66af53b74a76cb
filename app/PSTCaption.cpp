#include "app/PSTCaption.h"

#include "pst/PSTFile.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>

namespace tessaly::app {

void TPSTCaption::Add(pst::TPSTFile* file, int number)
{
    if (!file || Contains(file))
        return;
    auto& group = m_groups[file->FileCaption()];
    group.push_back({file, number});
    Apply(group);
}

void TPSTCaption::Remove(pst::TPSTFile* file)
{
    if (!file)
        return;
    const auto found = m_groups.find(file->FileCaption());
    if (found == m_groups.end())
        return;
    auto& group = found.value();
    std::erase_if(group, [file](const TEntry& entry) { return entry.File == file; });
    if (group.empty())
        m_groups.erase(found);
    else
        Apply(group);
}

void TPSTCaption::MakeUnique()
{
    for (const auto& group : std::as_const(m_groups))
        Apply(group);
}

bool TPSTCaption::Contains(const pst::TPSTFile* file) const
{
    if (!file)
        return false;
    const auto found = m_groups.constFind(file->FileCaption());
    return found != m_groups.cend()
        && std::any_of(found->begin(), found->end(), [file](const TEntry& entry) { return entry.File == file; });
}

void TPSTCaption::Apply(const std::vector<TEntry>& group) const
{
    for (const auto& entry : group) {
        const QString& caption = entry.File->FileCaption();
        if (group.size() == 1) {
            entry.File->SetCaption(caption);
            continue;
        }
        const QString distinct = entry.Number >= 1
            ? QString::number(entry.Number)
            : QFileInfo(QFileInfo(entry.File->FileName()).absolutePath()).fileName();
        entry.File->SetCaption(caption + QStringLiteral(" (") + distinct + QLatin1Char(')'));
    }
}

} // namespace tessaly::app
