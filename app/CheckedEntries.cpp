#include "app/CheckedEntries.h"

#include "core/MessageBus.h"

#include <QVariant>

namespace tessaly::app {

using core::TMessageBus;

TCheckedEntries::TCheckedEntries()
{
    auto& bus = TMessageBus::Instance();
    bus.Subscribe(this, core::Topic::FileChecked,
        TMessageBus::THandler([this](const QVariant& data) { Apply(data.value<TFileCheckNotice>()); }));
    bus.Subscribe(this, core::Topic::FileCheckRequest,
        TMessageBus::TAnswerHandler([this](const QVariant&) { return QVariant::fromValue(Entries()); }));
}

TCheckedEntries::~TCheckedEntries()
{
    TMessageBus::Instance().Unsubscribe(this);
}

TFileCheckList TCheckedEntries::Entries() const
{
    return m_entries;
}

void TCheckedEntries::ForgetFile(const QString& fileName)
{
    m_entries.removeIf([&](const TFileCheckNotice& entry) { return entry.FileName == fileName; });
}

void TCheckedEntries::Apply(const TFileCheckNotice& notice)
{
    const auto same = [&](const TFileCheckNotice& entry) {
        return entry.Kind == notice.Kind && entry.UID == notice.UID && entry.FileName == notice.FileName;
    };
    m_entries.removeIf(same);
    if (notice.Checked)
        m_entries.append(notice);
}

} // namespace tessaly::app
