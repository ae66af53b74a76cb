#include "app/ExportDialog.h"

#include "tasks/MailOtherTasks.h"

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
#include <QStandardItemModel>
#include <QStandardPaths>
#include <QThread>
#include <QVBoxLayout>
#include <cmath>

namespace tessaly::app {

using tasks::TMailConvertType;

namespace {

struct TFormatCaption {
    TMailConvertType Type;
    const char* Name;    // the format's name, in file dialogs
    const char* Caption; // in the format box
};

const TFormatCaption FormatCaptions[] = {
    {tasks::mctEML, QT_TRANSLATE_NOOP("TExportDialog", "EML"), QT_TRANSLATE_NOOP("TExportDialog", "EML: an .eml file per message")},
    {tasks::mctMSG, QT_TRANSLATE_NOOP("TExportDialog", "MSG"), QT_TRANSLATE_NOOP("TExportDialog", "MSG: an Outlook .msg file per message")},
    {tasks::mctMBox, QT_TRANSLATE_NOOP("TExportDialog", "MBOX"), QT_TRANSLATE_NOOP("TExportDialog", "MBOX: one mailbox file")},
    {tasks::mctHTML, QT_TRANSLATE_NOOP("TExportDialog", "HTML"), QT_TRANSLATE_NOOP("TExportDialog", "HTML: a web page per message")},
    {tasks::mctXHTML, QT_TRANSLATE_NOOP("TExportDialog", "XHTML"), QT_TRANSLATE_NOOP("TExportDialog", "XHTML: an XHTML page per message")},
    {tasks::mctPDF, QT_TRANSLATE_NOOP("TExportDialog", "PDF"), QT_TRANSLATE_NOOP("TExportDialog", "PDF: a PDF per message")},
    {tasks::mctTXT, QT_TRANSLATE_NOOP("TExportDialog", "Text"), QT_TRANSLATE_NOOP("TExportDialog", "Text: a text file per message")},
    {tasks::mctVCard, QT_TRANSLATE_NOOP("TExportDialog", "vCard"), QT_TRANSLATE_NOOP("TExportDialog", "vCard: a .vcf file per contact")},
    {tasks::mctICal, QT_TRANSLATE_NOOP("TExportDialog", "iCalendar"),
        QT_TRANSLATE_NOOP("TExportDialog", "iCalendar: an .ics file per meeting or appointment")},
    {tasks::mctPST, QT_TRANSLATE_NOOP("TExportDialog", "PST"), QT_TRANSLATE_NOOP("TExportDialog", "PST: one Outlook data file")},
};

QString FormatName(TMailConvertType type)
{
    for (const auto& format : FormatCaptions)
        if (format.Type == type)
            return QCoreApplication::translate("TExportDialog", format.Name);
    return {};
}

// The options of some formats only.
enum TFormatOption { foRemotePictures, foPicturesBeside, foPaper, foTextFromHtml, foVCardVersion, foSeparateItems };

bool Applies(TFormatOption option, TMailConvertType type)
{
    using namespace tasks;
    switch (option) {
    case foRemotePictures: return type == mctHTML || type == mctXHTML || type == mctPDF;
    case foPicturesBeside: return type == mctHTML || type == mctXHTML;
    case foPaper: return type == mctPDF;
    case foTextFromHtml: return type == mctTXT;
    case foVCardVersion: return type == mctVCard;
    case foSeparateItems:
        return type == mctEML || type == mctMBox || type == mctHTML || type == mctXHTML || type == mctPDF || type == mctTXT;
    }
    return false;
}

// Formats that write one file for the whole run.
bool WritesOneFile(TMailConvertType type)
{
    return type == tasks::mctMBox || type == tasks::mctPST;
}

bool SameSize(double a, double b)
{
    return std::abs(a - b) < 0.5;
}

} // namespace

const QList<TMailConvertType>& TExportDialog::Formats()
{
    static const QList<TMailConvertType> formats = [] {
        QList<TMailConvertType> list;
        for (const auto& format : FormatCaptions)
            list << format.Type;
        return list;
    }();
    return formats;
}

TExportDialog::TExportDialog(tasks::TMailProperties& properties, std::shared_ptr<mail::IMailMessage> sample,
    int messageCount, QWidget* parent)
    : QDialog(parent), m_properties(properties), m_sample(std::move(sample)), m_oneMessage(messageCount == 1)
{
    HasWriter = [](tasks::TMailProperties& options) { return tasks::CreateMailTask(options) != nullptr; };
    setWindowTitle(QCoreApplication::translate("TExportDialog", "Export messages"));
    resize(560, 600);
    auto* layout = new QVBoxLayout(this);

    // The format, and below it the options of that format alone.
    auto* formatBox = new QGroupBox(QCoreApplication::translate("TExportDialog", "Format"));
    m_formatRows = new QFormLayout(formatBox);
    m_formatBox = new QComboBox;
    for (const auto& format : FormatCaptions)
        m_formatBox->addItem(QCoreApplication::translate("TExportDialog", format.Caption), int(format.Type));
    if (!tasks::HasPagePrinter()) {
        // PDF pages are printed by the browser engine of the window program.
        auto* model = qobject_cast<QStandardItemModel*>(m_formatBox->model());
        if (QStandardItem* item = model ? model->item(int(Formats().indexOf(tasks::mctPDF))) : nullptr) {
            item->setEnabled(false);
            item->setToolTip(QCoreApplication::translate("TExportDialog",
                "PDF pages cannot be printed here: export to PDF with the command line (tessaly -format pdf)"));
        }
    }
    m_formatRows->addRow(QCoreApplication::translate("TExportDialog", "Format:"), m_formatBox);
    m_remotePictures = new QCheckBox(QCoreApplication::translate("TExportDialog", "Keep pictures from other hosts"));
    m_remotePictures->setChecked(properties.RemotePictures);
    m_remotePictures->setToolTip(QCoreApplication::translate("TExportDialog",
        "Opening the output then asks those hosts for the pictures; off, nothing leaves the page"));
    m_formatRows->addRow(m_remotePictures);
    m_picturesBeside = new QCheckBox(QCoreApplication::translate("TExportDialog", "Save pictures beside the page"));
    m_picturesBeside->setChecked(properties.PicturesBeside);
    m_picturesBeside->setToolTip(QCoreApplication::translate("TExportDialog",
        "In a folder next to each page rather than inside it"));
    m_formatRows->addRow(m_picturesBeside);
    m_paperRow = new QWidget;
    auto* paperLayout = new QHBoxLayout(m_paperRow);
    paperLayout->setContentsMargins(0, 0, 0, 0);
    m_paper = new QComboBox;
    const auto& paper = properties.HTMLProperties.Paper;
    for (const auto& [name, size] : tasks::PaperSizes()) {
        m_paper->addItem(name.size() == 2 ? name.toUpper() : name.left(1).toUpper() + name.mid(1), name);
        if ((SameSize(size.width(), paper.Width) && SameSize(size.height(), paper.Height))
            || (SameSize(size.width(), paper.Height) && SameSize(size.height(), paper.Width)))
            m_paper->setCurrentIndex(m_paper->count() - 1);
    }
    m_landscape = new QCheckBox(QCoreApplication::translate("TExportDialog", "Landscape"));
    m_landscape->setChecked(paper.Width > paper.Height);
    paperLayout->addWidget(m_paper);
    paperLayout->addWidget(m_landscape);
    paperLayout->addStretch();
    m_formatRows->addRow(QCoreApplication::translate("TExportDialog", "Paper:"), m_paperRow);
    m_combinePdf = new QCheckBox(QCoreApplication::translate("TExportDialog", "One PDF for the whole run"));
    m_combinePdf->setChecked(properties.CombineFiles && properties.ConvertType() == tasks::mctPDF);
    m_formatRows->addRow(m_combinePdf);
    m_textFromHtml = new QCheckBox(QCoreApplication::translate("TExportDialog", "Text made from the HTML body"));
    m_textFromHtml->setChecked(properties.TextExportOptions.Has(tasks::tetUseHTMLBody));
    m_formatRows->addRow(m_textFromHtml);
    m_vcardVersion = new QComboBox;
    m_vcardVersion->addItem(QStringLiteral("3.0"), 3);
    m_vcardVersion->addItem(QStringLiteral("4.0"), 4);
    m_vcardVersion->setCurrentIndex(properties.VCardVersion == 4 ? 1 : 0);
    m_vcardVersion->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    m_formatRows->addRow(QCoreApplication::translate("TExportDialog", "vCard version:"), m_vcardVersion);
    m_separateItems = new QCheckBox(QCoreApplication::translate("TExportDialog", "Contacts as vCard, meetings as iCalendar"));
    m_separateItems->setChecked(!properties.OneFormat);
    m_formatRows->addRow(m_separateItems);
    layout->addWidget(formatBox);

    // The destination of the last run: a folder, or the file a format of
    // one file wrote.
    QString folder = properties.Destination;
    const QFileInfo last(folder);
    if (!folder.isEmpty() && (WritesOneFile(properties.ConvertType()) || (last.exists() && !last.isDir())))
        folder = last.path();
    if (folder.isEmpty())
        folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    m_format = Formats().contains(properties.ConvertType()) ? properties.ConvertType() : tasks::mctEML;
    if (m_format == tasks::mctPDF && !tasks::HasPagePrinter())
        m_format = tasks::mctEML;

    auto* destinationBox = new QGroupBox(QCoreApplication::translate("TExportDialog", "Destination"));
    auto* destinationLayout = new QHBoxLayout(destinationBox);
    // The file of the last run, when it was of the same format.
    m_destinationIsFile = WritesOneFile(m_format) && m_format == properties.ConvertType() && folder != properties.Destination;
    m_destination = new QLineEdit(QDir::toNativeSeparators(m_destinationIsFile ? properties.Destination : folder));
    auto* browse = new QPushButton(QCoreApplication::translate("TExportDialog", "Browse..."));
    connect(browse, &QPushButton::clicked, this, [this] {
        const QString extension = tasks::ConvertTypeExtension(m_format);
        const QString chosen = SingleFile()
            ? QFileDialog::getSaveFileName(this, QCoreApplication::translate("TExportDialog", "Export to file"), m_destination->text(),
                  QCoreApplication::translate("TExportDialog", "%1 files (*.%2)").arg(FormatName(m_format), extension))
            : QFileDialog::getExistingDirectory(this, QCoreApplication::translate("TExportDialog", "Export to folder"), m_destination->text());
        if (!chosen.isEmpty())
            m_destination->setText(QDir::toNativeSeparators(chosen));
    });
    m_destinationLabel = new QLabel;
    destinationLayout->addWidget(m_destinationLabel);
    destinationLayout->addWidget(m_destination, 1);
    destinationLayout->addWidget(browse);
    layout->addWidget(destinationBox);

    auto* namesBox = new QGroupBox(QCoreApplication::translate("TExportDialog", "File names"));
    m_namesBox = namesBox;
    auto* names = new QFormLayout(namesBox);
    m_template = new QLineEdit(properties.FileNameTemplate());
    m_template->setToolTip(QCoreApplication::translate("TExportDialog", "Macros: [subject] [sender] [sender.name] [sender.email] [recipient] "
                                          "[date] [date:yyyy-mm-dd] [n] [nn] [ifattach] [body]"));
    m_example = new QLabel;
    m_example->setTextInteractionFlags(Qt::TextSelectableByMouse);
    names->addRow(QCoreApplication::translate("TExportDialog", "Template:"), m_template);
    names->addRow(QCoreApplication::translate("TExportDialog", "Example:"), m_example);
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

    layout->addStretch(); // the boxes keep their height when options hide
    m_error = new QLabel;
    m_error->setStyleSheet(QStringLiteral("color: #b00000"));
    m_error->hide();
    layout->addWidget(m_error);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText(QCoreApplication::translate("TExportDialog", "&Export"));
    connect(buttons, &QDialogButtonBox::accepted, this, &TExportDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    m_formatBox->setCurrentIndex(int(Formats().indexOf(m_format)));
    connect(m_formatBox, &QComboBox::currentIndexChanged, this, &TExportDialog::FormatChanged);
    connect(m_destination, &QLineEdit::textChanged, this, [this] {
        if (WritesOneFile(m_format))
            UpdateExample();
    });
    FormatChanged();
}

bool TExportDialog::SingleFile() const
{
    return m_oneMessage || WritesOneFile(m_format);
}

void TExportDialog::SetFormat(TMailConvertType format)
{
    if (const qsizetype index = Formats().indexOf(format); index >= 0)
        m_formatBox->setCurrentIndex(int(index));
}

void TExportDialog::ApplyFormat(TMailConvertType format)
{
    m_properties.HTMLProperties.Type = tasks::htNone;
    m_properties.SetConvertType(format);
    // What another format brought along goes with it.
    m_properties.UseFileNameTemplate = !WritesOneFile(format);
    m_properties.CombineFiles = format == tasks::mctMBox || (format == tasks::mctPDF && m_combinePdf->isChecked());
}

QString TExportDialog::DestinationFolder() const
{
    const QString text = QDir::fromNativeSeparators(m_destination->text().trimmed());
    if (text.isEmpty())
        return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return m_destinationIsFile && !QFileInfo(text).isDir() ? QFileInfo(text).path() : text;
}

void TExportDialog::FormatChanged()
{
    const TMailConvertType previous = m_format;
    m_format = TMailConvertType(m_formatBox->currentData().toInt());
    ApplyFormat(m_format);
    m_formatRows->setRowVisible(m_remotePictures, Applies(foRemotePictures, m_format));
    m_formatRows->setRowVisible(m_picturesBeside, Applies(foPicturesBeside, m_format));
    m_formatRows->setRowVisible(m_paperRow, Applies(foPaper, m_format));
    m_formatRows->setRowVisible(m_combinePdf, Applies(foPaper, m_format));
    m_formatRows->setRowVisible(m_textFromHtml, Applies(foTextFromHtml, m_format));
    m_formatRows->setRowVisible(m_vcardVersion, Applies(foVCardVersion, m_format));
    m_formatRows->setRowVisible(m_separateItems, Applies(foSeparateItems, m_format));

    // The destination: the run's file, the message's file or the folder.
    const QString folder = DestinationFolder();
    QString destination = folder;
    const QString current = QDir::fromNativeSeparators(m_destination->text().trimmed());
    if (WritesOneFile(m_format) && m_destinationIsFile && previous == m_format && !current.isEmpty()) {
        destination = current; // the file given stays
    } else if (WritesOneFile(m_format)) {
        m_properties.Destination = folder + QLatin1Char('/');
        m_properties.InitDestination({}, {});
        destination = m_properties.Destination;
    } else if (m_oneMessage) {
        // The name given keeps its base, else the one the template gives.
        QString name = m_destinationIsFile && !WritesOneFile(previous) && !QFileInfo(current).completeBaseName().isEmpty()
            ? QFileInfo(current).completeBaseName() + QLatin1Char('.') + m_properties.Extension()
            : m_sample ? m_properties.GetFileNameByTemplate(*m_sample, 0) : QString();
        if (!name.isEmpty())
            destination = QDir(folder).filePath(name);
    }
    m_destinationIsFile = destination != folder;
    m_destination->setText(QDir::toNativeSeparators(destination));
    m_destinationLabel->setText(m_destinationIsFile ? QCoreApplication::translate("TExportDialog", "File:")
                                                    : QCoreApplication::translate("TExportDialog", "Folder:"));
    // A file of its own for the run, or one message's chosen file: no
    // names from the template.
    m_namesBox->setEnabled(!WritesOneFile(m_format));
    m_template->setEnabled(!SingleFile());
    m_error->hide();
    UpdateExample();
}

QString TExportDialog::ExampleName() const
{
    if (WritesOneFile(m_format))
        return QFileInfo(QDir::fromNativeSeparators(m_destination->text().trimmed())).fileName();
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

void TExportDialog::ShowError(const QString& text)
{
    m_error->setText(text);
    m_error->show();
}

bool TExportDialog::Apply()
{
    const QString destination = QDir::fromNativeSeparators(m_destination->text().trimmed());
    if (destination.isEmpty()) {
        ShowError(QCoreApplication::translate("TExportDialog", "Choose where the messages go."));
        return false;
    }
    ApplyFormat(m_format);
    if (HasWriter && !HasWriter(m_properties)) {
        ShowError(QCoreApplication::translate("TExportDialog", "This version of Tessaly cannot write %1 yet. Choose another format.")
                      .arg(FormatName(m_format)));
        return false;
    }
    m_error->hide();
    m_properties.SetFileNameTemplate(m_template->text());
    if (WritesOneFile(m_format)) {
        // A folder given gets the file of the default name.
        m_properties.Destination = destination;
        if (QFileInfo(destination).isDir() && !destination.endsWith(QLatin1Char('/')))
            m_properties.Destination += QLatin1Char('/');
        m_properties.InitDestination({}, {});
    } else if (m_oneMessage) {
        // One message: the file chosen, through a template of its own name.
        const QFileInfo info(destination);
        m_properties.Destination = info.path();
        QString name = info.completeBaseName();
        name.replace(QLatin1Char('['), QLatin1Char('(')).replace(QLatin1Char(']'), QLatin1Char(')'));
        m_properties.SetFileNameTemplate(name);
    } else {
        m_properties.Destination = destination;
    }
    // The chosen format's own options; those of the others stay as they were.
    if (Applies(foRemotePictures, m_format))
        m_properties.RemotePictures = m_remotePictures->isChecked();
    if (Applies(foPicturesBeside, m_format))
        m_properties.PicturesBeside = m_picturesBeside->isChecked();
    if (Applies(foPaper, m_format)) {
        auto& paper = m_properties.HTMLProperties.Paper;
        const auto& sizes = tasks::PaperSizes();
        const QSizeF size = sizes.value(std::max(0, m_paper->currentIndex()), sizes.front()).second;
        paper.Width = m_landscape->isChecked() ? size.height() : size.width();
        paper.Height = m_landscape->isChecked() ? size.width() : size.height();
    }
    if (Applies(foTextFromHtml, m_format))
        m_properties.TextExportOptions.Set(tasks::tetUseHTMLBody, m_textFromHtml->isChecked());
    if (Applies(foVCardVersion, m_format))
        m_properties.VCardVersion = m_vcardVersion->currentData().toInt();
    if (Applies(foSeparateItems, m_format))
        m_properties.OneFormat = !m_separateItems->isChecked();
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
