#pragma once

// "Export messages": the output format with the options of that format,
// the destination (a file for one message or for the formats that write one
// file, a folder otherwise) and the options users change most, with a live
// example of the file name the template gives; then the run with its
// progress and a summary at the end.

#include "tasks/MailTask.h"

#include <QDialog>
#include <functional>

class QCheckBox;
class QComboBox;
class QFormLayout;
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

    // Writes the controls into the options: the format chosen and its own
    // options (those of other formats keep their values); false (with the
    // reason shown) when the destination is missing or no writer handles
    // the format.
    bool Apply();
    void accept() override;

    // The formats offered, in their order.
    static const QList<tasks::TMailConvertType>& Formats();
    tasks::TMailConvertType Format() const { return m_format; }
    // Chooses a format as the format box does.
    void SetFormat(tasks::TMailConvertType format);
    // Whether a format has a writer; replaceable for tests.
    std::function<bool(tasks::TMailProperties&)> HasWriter;

    QComboBox* FormatBox() const { return m_formatBox; }
    QCheckBox* RemotePicturesBox() const { return m_remotePictures; }
    QCheckBox* PicturesBesideBox() const { return m_picturesBeside; }
    QComboBox* PaperBox() const { return m_paper; }
    QCheckBox* LandscapeBox() const { return m_landscape; }
    QCheckBox* CombinePdfBox() const { return m_combinePdf; }
    QCheckBox* TextFromHtmlBox() const { return m_textFromHtml; }
    QComboBox* VCardVersionBox() const { return m_vcardVersion; }
    QCheckBox* SeparateItemsBox() const { return m_separateItems; }
    QLabel* DestinationLabel() const { return m_destinationLabel; }
    QLabel* ErrorLabel() const { return m_error; }
    QLineEdit* DestinationEdit() const { return m_destination; }
    QLineEdit* TemplateEdit() const { return m_template; }
    QLabel* ExampleLabel() const { return m_example; }
    QCheckBox* SaveAttachBox() const { return m_saveAttach; }
    QCheckBox* KeepFoldersBox() const { return m_keepFolders; }
    QLineEdit* FilterSubjectEdit() const { return m_filterSubject; }
    QComboBox* FilterAttachBox() const { return m_filterAttach; }
    // The destination is a file: one message, or a format that writes one
    // file for the run.
    bool SingleFile() const;
    QString ExampleName() const;

private:
    void UpdateExample();
    // The options of the chosen format shown, the others hidden; the
    // destination made a file or a folder as the format writes.
    void FormatChanged();
    // The format into the options, with what it brings along.
    void ApplyFormat(tasks::TMailConvertType format);
    QString DestinationFolder() const;
    void ShowError(const QString& text);
    tasks::TMailProperties& m_properties;
    std::shared_ptr<mail::IMailMessage> m_sample;
    bool m_oneMessage;
    tasks::TMailConvertType m_format = tasks::mctEML;
    bool m_destinationIsFile = false; // what the destination's text names now
    QComboBox* m_formatBox;
    QFormLayout* m_formatRows;
    QCheckBox* m_remotePictures;
    QCheckBox* m_picturesBeside;
    QWidget* m_paperRow;
    QComboBox* m_paper;
    QCheckBox* m_landscape;
    QCheckBox* m_combinePdf;
    QCheckBox* m_textFromHtml;
    QComboBox* m_vcardVersion;
    QCheckBox* m_separateItems;
    QLabel* m_destinationLabel;
    QLineEdit* m_destination;
    QWidget* m_namesBox;
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
