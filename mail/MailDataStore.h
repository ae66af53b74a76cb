#pragma once

// The rows of a message list: one record per message of a folder, with the
// message reachable by row. Records are read when first asked for.

#include "mail/MailMsgIntf.h"

namespace tessaly::mail {

class TMailDataStore {
public:
    virtual ~TMailDataStore() = default;
    virtual int RowCount() const = 0;
    // A number that identifies the row's message within its source; 0 for
    // an empty slot.
    virtual int UID(int row) const = 0;
    // Null for an empty slot.
    virtual std::shared_ptr<IMailMessage> Message(int row) const = 0;
    // The file the row's message belongs to (a data file or a message file).
    virtual QString MessageFileName(int row) const = 0;
};

} // namespace tessaly::mail
