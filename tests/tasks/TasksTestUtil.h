#pragma once

// Tests of export options use a settings file of their own and the en_US
// locale, and give both back afterwards.

#include "core/SettingsStore.h"
#include "mail/MailTestObjects.h"

#include <QLocale>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace tessaly::test {

class TOptionsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        core::TSettingsStore::SetGlobal(std::make_unique<core::TSettingsStore>(m_dir.filePath(QStringLiteral("t.ini"))));
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    }
    void TearDown() override
    {
        core::TSettingsStore::SetGlobal(nullptr);
        QLocale::setDefault(m_locale);
    }

    QTemporaryDir m_dir;
    QLocale m_locale;
};

// A message from Ann to Bob with a text body and attachments.
inline std::shared_ptr<TTestMessage> TestMail(const QString& subject, const QString& text = QStringLiteral("Hello"),
    std::vector<std::shared_ptr<mail::IMailAttach>> attaches = {})
{
    auto message = std::make_shared<TTestMessage>();
    message->subject = subject;
    message->sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("Ann"), QStringLiteral("ann@x.org"));
    message->recipients[mail::mrtTo] = Recipients({{QStringLiteral("Bob"), QStringLiteral("bob@x.org")}});
    message->text = text;
    message->dates[mail::mdClientSubmit] = 45000.5;
    message->attaches = std::make_shared<TTestAttachList>(std::move(attaches));
    return message;
}

} // namespace tessaly::test
