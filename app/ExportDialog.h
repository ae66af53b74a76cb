#pragma once

// "Export messages": the destination (a file for one message, a folder
// otherwise) and the options users change most, with a live example of
// the file name the template gives; then the run with its progress and a
// summary at the end.

#include "tasks/MailEMLTask.h"

#include <QDialog>
#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QSpinBox;

namespace tessaly::app {

class TExportDialog : public QDialog {
public:
    // sample: the first message, for the example name; messageCount decides
    // whether the destination is a file or a folder.
    TExportDialog(tasks::TMailProperties& properties, std::shared_ptr<mail::IMailMessage> sample, int messageCount,
        QWidget* parent = nullptr);

    // Writes the controls into the options; false (with the reason shown)
    // when the destination is missing.
    bool Apply();
    void accept() override;

    QLineEdit* DestinationEdit() const { return m_destination; }
    QLineEdit* TemplateEdit() const { return m_template; }
    QLabel* ExampleLabel() const { return m_example; }
    QCheckBox* SaveAttachBox() const { return m_saveAttach; }
    QCheckBox* KeepFoldersBox() const { return m_keepFolders; }
    QLineEdit* FilterSubjectEdit() const { return m_filterSubject; }
    QComboBox* FilterAttachBox() const { return m_filterAttach; }
    bool SingleFile() const { return m_singleFile; }
    QString ExampleName() const;

private:
    void UpdateExample();
    tasks::TMailProperties& m_properties;
    std::shared_ptr<mail::IMailMessage> m_sample;
    bool m_singleFile;
    QLineEdit* m_destination;
    QLineEdit* m_template;
    QLabel* m_example;
    QCheckBox* m_saveAttach;
    QCheckBox* m_keepFolders;
    QSpinBox* m_keepLevel;
    QCheckBox* m_dateStamps;
    QLineEdit* m_filterSender;
    QLineEdit* m_filterRecipient;
    QLineEdit* m_filterSubject;
    QComboBox* m_filterAttach;
    QLabel* m_error;
};

// Runs a task on a background thread behind a progress dialog with the
// count, the current subject and Cancel; returns when the run has ended.
void RunWithProgress(tasks::TCustomTask& task, QWidget* parent);

// The summary of a finished run: exported, skipped by the filter, failed.
QString RunSummary(tasks::TCustomTask& task);

} // namespace tessaly::app
