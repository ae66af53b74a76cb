#pragma once

// Synthetic data files for tests and benchmarks: from a seed and a few
// parameters, the same file every time.

#include "pstfile/PSTWriter.h"

#include <QString>
#include <cstdint>
#include <functional>

namespace tessaly::pstfile {

struct TGeneratorOptions {
    uint32_t seed = 1;
    int folders = 8;          // mail folders besides the special ones
    int depth = 2;            // levels those folders nest to
    int64_t messages = 100;   // mail items, spread over the mail folders
    int bodySize = 2000;      // average characters of a text body
    int attachCount = 2;      // at most this many attachments per message
    int attachSize = 20000;   // average bytes of an attachment
    int nonAsciiShare = 20;   // percent of words from non-Latin scripts
    int contacts = 10;        // items of the "Contacts" folder
    int appointments = 10;    // items of the "Calendar" folder
    // Adds the items readers have to treat with care: folders named
    // "MS-OLK..." and "IPM...", an IPF.Task folder, a recipient of type 5, an
    // Exchange sender, nameless attachments, an attached message.
    bool edgeCases = false;
    // Tree: mail in random order, numbered folder by folder. Arrival: mail
    // in date order, spread over the folders and numbered as it comes.
    TPSTMessageOrder order = pmoTree;
    uint8_t cryptMethod = CryptNone; // the encoding of the data blocks
};

struct TGeneratorResult {
    int64_t messages = 0; // items written, attached messages not counted
    int64_t bytes = 0;
};

// Writes the file; progress gets the items written so far. Throws
// core::ETessalyError when the file cannot be written.
TGeneratorResult GenerateDataFile(const QString& fileName, const TGeneratorOptions& options,
    const std::function<void(int64_t)>& progress = {});

} // namespace tessaly::pstfile
