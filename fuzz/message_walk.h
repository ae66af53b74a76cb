#pragma once

// Reads every field of a message, its attachments and attached messages,
// and renders it to HTML.

#include "mail/MailContact.h"
#include "mail/MailMsgHTML.h"
#include "mail/MailMsgIntf.h"

inline void WalkMessage(const tessaly::mail::IMailMessage& message, int depth = 0)
{
    using namespace tessaly::mail;
    if (const auto* contact = dynamic_cast<const IMailContact*>(&message))
        for (int field = 0; field < 30; ++field)
            (void)contact->GetField(field);
    if (const auto sender = message.Sender())
        (void)sender->Caption();
    (void)message.Subject();
    (void)message.SenderIP();
    (void)message.Headers();
    for (auto kind : {mrtTo, mrtCC, mrtBCC})
        if (const auto list = message.Recipients(kind))
            for (const auto& recipient : *list)
                (void)recipient->Caption();
    for (auto kind : {mbtText, mbtHTML, mbtRTF})
        (void)message.Body(kind);
    if (const auto* lines = dynamic_cast<const IMailMessage4*>(&message))
        (void)lines->BodyStrings(mbtText);
    (void)message.Date(mdClientSubmit);
    // Rendered as the preview would, images and all.
    TMailHTMLOptions options;
    options.HTMLEmbedImages = true;
    options.RFCHeaders = true;
    options.SenderIP = true;
    const TMessageHTMLTask task(message);
    (void)TMailMsgHTML::Render(message, options, task);
    if (const auto attaches = message.Attaches()) {
        for (const auto& attach : *attaches) {
            (void)attach->FileName();
            (void)attach->Content();
            (void)attach->ContentLocation();
            if (depth < 8)
                if (const auto inner = attach->AsMailMessage())
                    WalkMessage(*inner, depth + 1);
        }
    }
}
