#pragma once

// A main window over a settings file of its own, with every dialog
// replaced, for the widget tests.

#include "TestUtil.h"
#include "app/PSTMainForm.h"
#include "app/ProjectData.h"
#include "core/CommandLine.h"
#include "core/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace tessaly::test {

class MainFormTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_settings = std::make_unique<core::TSettingsStore>(m_dir.filePath(QStringLiteral("settings.ini")));
        core::RegisterReportBuilder(std::make_shared<pst::TPSTReportBuilder>());
        m_commandLine.DefineKey({QStringLiteral("pst"), QStringLiteral("Outlook data file to view"), core::TKeyKind::Value, true});
    }
    void TearDown() override
    {
        m_form.reset();
        m_data.reset();
        core::RegisterReportBuilder(nullptr);
    }

    app::TPSTMainForm& Form(const QString& commandLineFile = {})
    {
        m_data = std::make_unique<app::TPSTViewerProjectData>(m_commandLine, *m_settings, nullptr, [] { return false; });
        m_data->DataModuleCreate();
        m_form = std::make_unique<app::TPSTMainForm>(*m_data, *m_settings, commandLineFile);
        m_form->AskOpenFile = [this](const QString& title, const QString&) {
            askedTitles << title;
            return chosenFile;
        };
        m_form->ShowWarning = [this](const QString& text) { warnings << text; };
        m_form->OpenMessageFile = [this](const QString& file) { messageFiles << file; };
        return *m_form;
    }

    // A copy of a sample under the test's folder (sub-folder dir).
    QString Copy(const QString& sample, const QString& dir, const QString& name = {})
    {
        const QString folder = m_dir.filePath(dir);
        QDir().mkpath(folder);
        const QString target = QDir(folder).filePath(name.isEmpty() ? QFileInfo(sample).fileName() : name);
        QFile::copy(TestData(sample), target);
        return target;
    }

    QString Broken(const QString& name)
    {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write(QByteArray(4096, 'x'));
        return path;
    }

    static QStringList Captions(const app::TPSTMainForm& form)
    {
        QStringList captions;
        for (const auto& node : form.TreeModel()->FileNodes())
            captions << node->Caption();
        return captions;
    }

    QTemporaryDir m_dir;
    std::unique_ptr<core::TSettingsStore> m_settings;
    core::TCommandLine m_commandLine;
    std::unique_ptr<app::TPSTViewerProjectData> m_data;
    std::unique_ptr<app::TPSTMainForm> m_form;
    QString chosenFile;
    QStringList askedTitles, warnings, messageFiles;
};

} // namespace tessaly::test
