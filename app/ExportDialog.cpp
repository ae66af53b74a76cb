#include "app/ExportDialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QEventLoop>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QProgressDialog>
#include <QPushButton>
#include <QSpinBox>
#include <QStandardPaths>
#include <QThread>
#include <QVBoxLayout>

namespace tessaly::app {

TExportDialog::TExportDialog(tasks::TMailProperties& properties, std::shared_ptr<mail::IMailMessage> sample,
    int messageCount, QWidget* parent)
    : QDialog(parent), m_properties(properties), m_sample(std::move(sample)), m_singleFile(messageCount == 1)
{
    setWindowTitle(QCoreApplication::translate("TExportDialog", "Export messages"));
    resize(540, 480);
    auto* layout = new QVBoxLayout(this);

    auto* destinationBox = new QGroupBox(QCoreApplication::translate("TExportDialog", "Destination"));
    auto* destinationLayout = new QHBoxLayout(destinationBox);
    m_destination = new QLineEdit;
    QString destination = properties.Destination;
    if (destination.isEmpty())
        destination = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (m_singleFile && m_sample)
        destination = QDir(destination).filePath(properties.GetFileNameByTemplate(*m_sample, 0));
    m_destination->setText(QDir::toNativeSeparators(destination));
    auto* browse = new QPushButton(QCoreApplication::translate("TExportDialog", "Browse..."));
    connect(browse, &QPushButton::clicked, this, [this] {
        const QString chosen = m_singleFile
            ? QFileDialog::getSaveFileName(this, QCoreApplication::translate("TExportDialog", "Export to file"), m_destination->text(),
                  QCoreApplication::translate("TExportDialog", "Internet messages (*.eml)"))
            : QFileDialog::getExistingDirectory(this, QCoreApplication::translate("TExportDialog", "Export to folder"), m_destination->text());
        if (!chosen.isEmpty())
            m_destination->setText(QDir::toNativeSeparators(chosen));
    });
    destinationLayout->addWidget(new QLabel(m_singleFile ? QCoreApplication::translate("TExportDialog", "File:") : QCoreApplication::translate("TExportDialog", "Folder:")));
    destinationLayout->addWidget(m_destination, 1);
    destinationLayout->addWidget(browse);
    layout->addWidget(destinationBox);

    auto* namesBox = new QGroupBox(QCoreApplication::translate("TExportDialog", "File names"));
    auto* names = new QFormLayout(namesBox);
    m_template = new QLineEdit(properties.FileNameTemplate());
    m_template->setToolTip(QCoreApplication::translate("TExportDialog", "Macros: [subject] [sender] [sender.name] [sender.email] [recipient] "
                                          "[date] [date:yyyy-mm-dd] [n] [nn] [ifattach] [body]"));
    m_example = new QLabel;
    m_example->setTextInteractionFlags(Qt::TextSelectableByMouse);
    names->addRow(QCoreApplication::translate("TExportDialog", "Template:"), m_template);
    names->addRow(QCoreApplication::translate("TExportDialog", "Example:"), m_example);
    m_template->setEnabled(!m_singleFile);
    connect(m_template, &QLineEdit::textChanged, this, &TExportDialog::UpdateExample);
    layout->addWidget(namesBox);

    auto* optionsBox = new QGroupBox(QCoreApplication::translate("TExportDialog", "Options"));
    auto* options = new QFormLayout(optionsBox);
    m_saveAttach = new QCheckBox(QCoreApplication::translate("TExportDialog", "Save attachments beside the messages"));
    m_saveAttach->setChecked(properties.Attach.Has(tasks::aotSave));
    options->addRow(m_saveAttach);
    m_keepFolders = new QCheckBox(QCoreApplication::translate("TExportDialog", "Keep the folder structure"));
    m_keepFolders->setChecked(properties.KeepFolderStructure);
    m_keepLevel = new QSpinBox;
    m_keepLevel->setRange(0, 20);
    m_keepLevel->setValue(properties.KeepFolderLevel);
    m_keepLevel->setToolTip(QCoreApplication::translate("TExportDialog", "Folder levels left out from the top"));
    auto* keep = new QHBoxLayout;
    keep->addWidget(m_keepFolders);
    keep->addWidget(new QLabel(QCoreApplication::translate("TExportDialog", "from level")));
    keep->addWidget(m_keepLevel);
    keep->addStretch();
    options->addRow(keep);
    m_dateStamps = new QCheckBox(QCoreApplication::translate("TExportDialog", "Give each file the date of its message"));
    m_dateStamps->setChecked(properties.CopyDateStamps);
    options->addRow(m_dateStamps);
    layout->addWidget(optionsBox);

    auto* filterBox = new QGroupBox(QCoreApplication::translate("TExportDialog", "Filter"));
    auto* filter = new QFormLayout(filterBox);
    m_filterSender = new QLineEdit(properties.Filter.Sender);
    m_filterRecipient = new QLineEdit(properties.Filter.Recipient);
    m_filterSubject = new QLineEdit(properties.Filter.Subject);
    m_filterAttach = new QComboBox;
    m_filterAttach->addItems({QCoreApplication::translate("TExportDialog", "All messages"), QCoreApplication::translate("TExportDialog", "With attachments"), QCoreApplication::translate("TExportDialog", "Without attachments")});
    m_filterAttach->setCurrentIndex(int(properties.Filter.Attachments));
    filter->addRow(QCoreApplication::translate("TExportDialog", "Sender contains:"), m_filterSender);
    filter->addRow(QCoreApplication::translate("TExportDialog", "Recipient contains:"), m_filterRecipient);
    filter->addRow(QCoreApplication::translate("TExportDialog", "Subject contains:"), m_filterSubject);
    filter->addRow(QCoreApplication::translate("TExportDialog", "Attachments:"), m_filterAttach);
    layout->addWidget(filterBox);

    m_error = new QLabel;
    m_error->setStyleSheet(QStringLiteral("color: #b00000"));
    m_error->hide();
    layout->addWidget(m_error);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText(QCoreApplication::translate("TExportDialog", "&Export"));
    connect(buttons, &QDialogButtonBox::accepted, this, &TExportDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    UpdateExample();
}

QString TExportDialog::ExampleName() const
{
    if (!m_sample)
        return {};
    m_properties.SetFileNameTemplate(m_template->text());
    return m_properties.GetFileNameByTemplate(*m_sample, 0);
}

void TExportDialog::UpdateExample()
{
    const QString name = ExampleName();
    m_example->setText(name.isEmpty() ? QCoreApplication::translate("TExportDialog", "(no name: the template gives nothing)") : name);
}

bool TExportDialog::Apply()
{
    const QString destination = QDir::fromNativeSeparators(m_destination->text().trimmed());
    if (destination.isEmpty()) {
        m_error->setText(QCoreApplication::translate("TExportDialog", "Choose where the messages go."));
        m_error->show();
        return false;
    }
    m_properties.SetFileNameTemplate(m_template->text());
    if (m_singleFile) {
        // One message: the file chosen, through a template of its own name.
        const QFileInfo info(destination);
        m_properties.Destination = info.path();
        QString name = info.completeBaseName();
        name.replace(QLatin1Char('['), QLatin1Char('(')).replace(QLatin1Char(']'), QLatin1Char(')'));
        m_properties.SetFileNameTemplate(name);
    } else {
        m_properties.Destination = destination;
    }
    m_properties.Attach.Set(tasks::aotSave, m_saveAttach->isChecked());
    m_properties.KeepFolderStructure = m_keepFolders->isChecked();
    m_properties.KeepFolderLevel = m_keepLevel->value();
    m_properties.CopyDateStamps = m_dateStamps->isChecked();
    m_properties.Filter.Sender = m_filterSender->text();
    m_properties.Filter.Recipient = m_filterRecipient->text();
    m_properties.Filter.Subject = m_filterSubject->text();
    m_properties.Filter.Attachments = tasks::TMailFilterAttachments(m_filterAttach->currentIndex());
    m_properties.Filter.Enabled = !m_properties.Filter.Sender.isEmpty() || !m_properties.Filter.Recipient.isEmpty()
        || !m_properties.Filter.Subject.isEmpty() || m_properties.Filter.Attachments != tasks::mfaAll;
    return true;
}

void TExportDialog::accept()
{
    if (Apply())
        QDialog::accept();
}

void RunWithProgress(tasks::TCustomTask& task, QWidget* parent)
{
    const int total = int(task.Entries().size());
    QProgressDialog progress(QCoreApplication::translate("TExportDialog", "Exporting..."), QCoreApplication::translate("TExportDialog", "Cancel"), 0, total, parent);
    progress.setWindowTitle(QCoreApplication::translate("TExportDialog", "Export messages"));
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(0);
    progress.setMinimumWidth(420);
    QPointer<QProgressDialog> guard(&progress);
    task.OnProgress = [guard](const tasks::TTaskProgress& step) {
        QMetaObject::invokeMethod(qApp, [guard, step] {
            if (!guard)
                return;
            guard->setValue(step.Done);
            if (!step.Current.isEmpty())
                guard->setLabelText(QCoreApplication::translate("TExportDialog", "%1 of %2: %3").arg(step.Done + 1).arg(step.Total).arg(step.Current.left(80)));
        }, Qt::QueuedConnection);
    };
    // Destinations that exist are renamed: a question from the worker
    // thread would wait on the window's thread.
    task.AskFileMode = nullptr;
    QEventLoop loop;
    QThread* worker = QThread::create([&task] { task.Run(); });
    QObject::connect(worker, &QThread::finished, &loop, &QEventLoop::quit);
    QObject::connect(&progress, &QProgressDialog::canceled, [&task] { task.Cancel(); });
    worker->start();
    loop.exec();
    worker->wait();
    delete worker;
    task.OnProgress = nullptr;
    QCoreApplication::processEvents(); // the last queued progress steps
}

QString RunSummary(tasks::TCustomTask& task)
{
    QString text = QCoreApplication::translate("TExportDialog", "Exported: %1\nSkipped by the filter: %2\nFailed: %3")
                       .arg(task.Written())
                       .arg(task.Filtered())
                       .arg(task.Failed() + task.Existing());
    if (task.Cancelled())
        text += QCoreApplication::translate("TExportDialog", "\nThe export was cancelled after %1 of %2 messages.")
                    .arg(task.Written() + task.Filtered() + task.Failed() + task.Existing())
                    .arg(task.Entries().size());
    return text;
}

} // namespace tessaly::app
