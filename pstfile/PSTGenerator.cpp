#include "pstfile/PSTGenerator.h"

#include "pstfile/PSTWriter.h"

#include <QRegularExpression>
#include <QStringList>
#include <algorithm>
#include <optional>
#include <random>

namespace tessaly::pstfile {

namespace {

const char* const LatinWords[] = {"report", "meeting", "budget", "quarterly", "review", "project", "deadline",
    "invoice", "schedule", "update", "proposal", "contract", "team", "customer", "release", "draft", "summary",
    "agenda", "follow", "notes", "travel", "office", "plan", "results", "question", "answer", "thanks", "please",
    "tomorrow", "Monday", "Zürich", "Größe", "café", "naïve"};
const char* const OtherWords[] = {"отчёт", "встреча", "бюджет", "προϋπολογισμός", "συνάντηση", "会議", "報告書",
    "予算", "プロジェクト", "회의", "보고서", "تقرير", "اجتماع", "דוח", "ประชุม", "予定表", "Ελλάδα", "Москва"};
const char* const FirstNames[] = {"Anna", "Bernd", "Chloé", "Dmitri", "Eleni", "Farid", "Greta", "Hiroshi", "Ines",
    "Jonas", "Katarzyna", "Lars", "Mei", "Nikolai", "Olga", "Pierre", "Quinn", "Rosa", "Søren", "Tomás"};
const char* const LastNames[] = {"Andersen", "Becker", "Costa", "Dubois", "Eriksson", "Fischer", "García", "Horvat",
    "Ivanova", "Jensen", "Kowalski", "Larsen", "Müller", "Novak", "O'Brien", "Petrov", "Rossi", "Schmidt", "Tanaka",
    "Weiß"};
const char* const Extensions[][2] = {{"pdf", "application/pdf"}, {"docx",
    "application/vnd.openxmlformats-officedocument.wordprocessingml.document"}, {"xlsx",
    "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"}, {"png", "image/png"},
    {"jpg", "image/jpeg"}, {"zip", "application/zip"}, {"txt", "text/plain"}};

// Mail is sent within five years from 2020-01-01.
constexpr int64_t Start = 1577836800, Span = 5 * 365 * 86400;

template <class T, size_t N>
constexpr size_t Count(const T (&)[N])
{
    return N;
}

class TSynth {
public:
    explicit TSynth(const TGeneratorOptions& options) : m_options(options), m_random(options.seed)
    {
        // Attachment data are slices of one random pool: cheap, and no two
        // attachments look alike at the same offset.
        m_pool.resize(1 << 22);
        std::mt19937_64 bytes(options.seed ^ 0x5DEECE66Dull);
        for (qsizetype i = 0; i < m_pool.size(); i += 8) {
            const uint64_t v = bytes();
            for (int k = 0; k < 8; ++k)
                m_pool[i + k] = char(v >> (8 * k));
        }
    }

    uint32_t Next(uint32_t bound) { return bound ? uint32_t(m_random() % bound) : 0; }

    QString Word()
    {
        if (int(Next(100)) < m_options.nonAsciiShare)
            return QString::fromUtf8(OtherWords[Next(Count(OtherWords))]);
        return QString::fromUtf8(LatinWords[Next(Count(LatinWords))]);
    }

    QString Words(int count)
    {
        QStringList words;
        for (int i = 0; i < count; ++i)
            words << Word();
        return words.join(QLatin1Char(' '));
    }

    QString Text(int chars)
    {
        QString text;
        text.reserve(chars + 40);
        while (text.size() < chars) {
            QString sentence = Words(6 + int(Next(10)));
            sentence[0] = sentence[0].toUpper();
            text += sentence + QStringLiteral(".");
            text += Next(5) == 0 ? QStringLiteral("\r\n\r\n") : QStringLiteral(" ");
        }
        return text;
    }

    std::pair<QString, QString> Person()
    {
        const QString first = QString::fromUtf8(FirstNames[Next(Count(FirstNames))]);
        const QString last = QString::fromUtf8(LastNames[Next(Count(LastNames))]);
        QString local = (first + QLatin1Char('.') + last).toLower();
        local.remove(QLatin1Char('\''));
        // Addresses stay ASCII: fold the letters that have no plain form.
        local = local.normalized(QString::NormalizationForm_KD);
        local.remove(QRegularExpression(QStringLiteral("[^a-z.]")));
        return {first + QLatin1Char(' ') + last, local + QStringLiteral("@example.com")};
    }

    QByteArray Data(int size)
    {
        size = std::clamp(size, 0, int(m_pool.size()));
        return m_pool.mid(Next(uint32_t(m_pool.size() - size + 1)), size);
    }

    QDateTime Date() { return QDateTime::fromSecsSinceEpoch(Start + int64_t(Next(Span)), Qt::UTC); }

    // Sent at a random time, or at the one given.
    TPSTMessage Mail(const std::optional<QDateTime>& when = {})
    {
        TPSTMessage m;
        const QString subject = Words(3 + int(Next(6)));
        m.SetString(pid::Subject, subject);
        m.SetString(pid::ConversationTopic, subject);
        m.SetString(pid::MessageClass, QStringLiteral("IPM.Note"));
        const auto [fromName, fromAddress] = Person();
        m.SetSender(fromName, QStringLiteral("SMTP"), fromAddress);
        QStringList to, cc;
        const int recipients = 1 + int(Next(4));
        for (int i = 0; i < recipients; ++i) {
            const auto [name, address] = Person();
            const int kind = i == 0 ? 1 : 1 + int(Next(3));
            m.AddRecipient(kind, name, QStringLiteral("SMTP"), address);
            (kind == 1 ? to : cc) << name;
        }
        m.SetString(pid::DisplayTo, to.join(QStringLiteral("; ")));
        m.SetString(pid::DisplayCc, cc.join(QStringLiteral("; ")));
        const QDateTime sent = when ? *when : Date();
        m.SetTime(pid::ClientSubmitTime, sent);
        m.SetTime(pid::DeliveryTime, sent.addSecs(5 + Next(600)));
        m.SetTime(pid::CreationTime, sent.addSecs(700));
        m.SetTime(pid::LastModificationTime, sent.addSecs(800));
        const QString body = Text(std::max(1, m_options.bodySize / 2 + int(Next(uint32_t(m_options.bodySize + 1)))));
        QString html = body.toHtmlEscaped();
        html.replace(QStringLiteral("\r\n\r\n"), QStringLiteral("</p><p>"));
        m.SetBodies(body,
            QStringLiteral("<html><head><meta charset=\"utf-8\"></head><body><p>%1</p></body></html>").arg(html).toUtf8(),
            {});
        m.SetString(pid::InternetMessageId, QStringLiteral("<%1.%2@example.com>").arg(m_random()).arg(m_options.seed));
        const int attachments = m_options.attachCount > 0 ? int(Next(uint32_t(m_options.attachCount + 1))) : 0;
        for (int i = 0; i < attachments; ++i) {
            const auto& ext = Extensions[Next(Count(Extensions))];
            const int size = m_options.attachSize / 2 + int(Next(uint32_t(m_options.attachSize + 1)));
            m.AddAttachment(Words(2).replace(QLatin1Char(' '), QLatin1Char('-')) + QLatin1Char('.')
                    + QLatin1String(ext[0]),
                Data(size), QLatin1String(ext[1]));
        }
        return m;
    }

    TPSTMessage Contact()
    {
        TPSTMessage m;
        const auto [name, address] = Person();
        const QStringList parts = name.split(QLatin1Char(' '));
        m.SetString(pid::MessageClass, QStringLiteral("IPM.Contact"));
        m.SetString(pid::Subject, name);
        m.SetString(pid::DisplayName, name);
        m.SetString(pid::GivenName, parts.value(0));
        m.SetString(pid::Surname, parts.value(1));
        m.SetString(pid::CompanyName, Words(2));
        m.SetString(pid::Title, Words(1));
        m.SetString(pid::BusinessTelephone, QStringLiteral("+41 44 %1").arg(1000000 + Next(8999999)));
        m.SetString(pid::MobileTelephone, QStringLiteral("+41 79 %1").arg(1000000 + Next(8999999)));
        m.SetNamedString(PSETID_Address(), pid::Email1Address, address);
        m.SetNamedString(PSETID_Address(), pid::Email1DisplayName, name + QStringLiteral(" (") + address + QLatin1Char(')'));
        m.SetString(pid::Body, Text(200));
        return m;
    }

    TPSTMessage Appointment()
    {
        TPSTMessage m;
        const QDateTime start = Date();
        const QDateTime end = start.addSecs(1800 * (1 + Next(6)));
        m.SetString(pid::MessageClass, QStringLiteral("IPM.Appointment"));
        m.SetString(pid::Subject, Words(4));
        const auto [name, address] = Person();
        m.SetSender(name, QStringLiteral("SMTP"), address);
        m.SetTime(pid::StartDate, start);
        m.SetTime(pid::EndDate, end);
        m.SetNamedTime(PSETID_Appointment(), pid::AppointmentStart, start);
        m.SetNamedTime(PSETID_Appointment(), pid::AppointmentEnd, end);
        m.SetNamedString(PSETID_Appointment(), pid::Location, QStringLiteral("Room ") + Words(1));
        m.SetString(pid::Body, Text(300));
        return m;
    }

private:
    const TGeneratorOptions& m_options;
    std::mt19937_64 m_random;
    QByteArray m_pool;
};

// Each new folder goes below a random earlier one that is not yet at the
// deepest level, so the tree spreads in breadth and depth.
void AddFolders(TPSTWriter& writer, TSynth& synth, uint32_t top, int count, int depth, std::vector<uint32_t>& folders)
{
    std::vector<std::pair<uint32_t, int>> parents{{top, 0}};
    for (int i = 0; i < count; ++i) {
        const auto [parent, level] = parents[synth.Next(uint32_t(parents.size()))];
        QString name = synth.Words(1 + int(synth.Next(2)));
        name[0] = name[0].toUpper();
        const uint32_t folder = writer.AddFolder(parent, name + QStringLiteral(" %1").arg(i + 1));
        folders.push_back(folder);
        if (level + 1 < depth)
            parents.emplace_back(folder, level + 1);
    }
}

void AddEdgeCases(TPSTWriter& writer, TSynth& synth, TGeneratorResult& result)
{
    const uint32_t top = writer.SpecialFolder(psfTopOfStore);
    writer.AddMessage(writer.AddFolder(top, QStringLiteral("MS-OLK-SyncIssues")), synth.Mail());
    writer.AddFolder(top, QStringLiteral("IPM_COMMON_VIEWS"), {});
    const uint32_t ipmWithChild = writer.AddFolder(top, QStringLiteral("IPM Archive"));
    writer.AddMessage(writer.AddFolder(ipmWithChild, QStringLiteral("Archived")), synth.Mail());
    writer.AddMessage(writer.AddFolder(top, QStringLiteral("Tasks"), QStringLiteral("IPF.Task")), synth.Mail());

    const uint32_t edge = writer.AddFolder(top, QStringLiteral("Edge cases"));
    TPSTMessage room = synth.Mail();
    room.SetString(pid::Subject, QStringLiteral("Recipient of type 5"));
    room.AddRecipient(5, QStringLiteral("Room 101"), QStringLiteral("SMTP"), QStringLiteral("room101@example.com"));
    writer.AddMessage(edge, room);

    TPSTMessage exchange = synth.Mail();
    exchange.SetString(pid::Subject, QStringLiteral("Exchange sender"));
    exchange.SetSender(QStringLiteral("Erika Exchange"), QStringLiteral("EX"),
        QStringLiteral("/O=EXAMPLE/OU=EXCHANGE ADMINISTRATIVE GROUP/CN=RECIPIENTS/CN=ERIKA"),
        QStringLiteral("erika@example.com"));
    exchange.AddRecipient(1, QStringLiteral("Xaver Exchange"), QStringLiteral("EX"),
        QStringLiteral("/O=EXAMPLE/OU=EXCHANGE ADMINISTRATIVE GROUP/CN=RECIPIENTS/CN=XAVER"),
        QStringLiteral("xaver@example.com"));
    writer.AddMessage(edge, exchange);

    TPSTMessage nameless = synth.Mail();
    nameless.attachments.clear();
    nameless.SetString(pid::Subject, QStringLiteral("Nameless attachments"));
    nameless.AddAttachment({}, synth.Data(1000));
    nameless.AddAttachment({}, synth.Data(2000));
    writer.AddMessage(edge, nameless);

    TPSTMessage outer = synth.Mail();
    outer.SetString(pid::Subject, QStringLiteral("Attached message"));
    auto inner = std::make_shared<TPSTMessage>(synth.Mail());
    inner->SetString(pid::Subject, QStringLiteral("The attached one"));
    outer.AddEmbedded(inner);
    writer.AddMessage(edge, outer);
    result.messages += 7;
}

} // namespace

TGeneratorResult GenerateDataFile(const QString& fileName, const TGeneratorOptions& options,
    const std::function<void(int64_t)>& progress)
{
    TSynth synth(options);
    const QUuid storeId(options.seed, 0x7E55, 0xA1, 1, 2, 3, 4, 5, 6, 7, 8);
    TPSTWriter writer(fileName, QStringLiteral("Synthetic %1").arg(options.seed), storeId,
        {options.order, options.cryptMethod});
    TGeneratorResult result;
    std::vector<uint32_t> mailFolders{writer.SpecialFolder(psfInbox), writer.SpecialFolder(psfSentItems)};
    AddFolders(writer, synth, writer.SpecialFolder(psfInbox), options.folders, std::max(1, options.depth), mailFolders);
    // Arriving mail comes over the same five years as random mail, in order.
    const int64_t step = options.messages > 0 ? std::max<int64_t>(1, Span / options.messages) : 1;
    for (int64_t i = 0; i < options.messages; ++i) {
        std::optional<QDateTime> when;
        if (options.order == pmoArrival)
            when = QDateTime::fromSecsSinceEpoch(Start + i * step + synth.Next(uint32_t(step)), Qt::UTC);
        // The message first, then its folder: the order of random draws the
        // generator has always had, so tree-ordered files stay the same.
        const TPSTMessage mail = synth.Mail(when);
        writer.AddMessage(mailFolders[synth.Next(uint32_t(mailFolders.size()))], mail);
        if (progress && (i + 1) % 1000 == 0)
            progress(i + 1);
    }
    result.messages = options.messages;
    const uint32_t top = writer.SpecialFolder(psfTopOfStore);
    if (options.contacts > 0) {
        const uint32_t contacts = writer.AddFolder(top, QStringLiteral("Contacts"), QStringLiteral("IPF.Contact"));
        for (int i = 0; i < options.contacts; ++i)
            writer.AddMessage(contacts, synth.Contact());
        result.messages += options.contacts;
    }
    if (options.appointments > 0) {
        const uint32_t calendar = writer.AddFolder(top, QStringLiteral("Calendar"), QStringLiteral("IPF.Appointment"));
        for (int i = 0; i < options.appointments; ++i)
            writer.AddMessage(calendar, synth.Appointment());
        result.messages += options.appointments;
    }
    if (options.edgeCases)
        AddEdgeCases(writer, synth, result);
    writer.Finish();
    result.bytes = writer.Size();
    return result;
}

} // namespace tessaly::pstfile
