#pragma once

// Tests of export options use a settings file of their own and the en_US
// locale, and give both back afterwards.

#include "core/SettingsStore.h"

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

} // namespace tessaly::test
