#pragma once

// Makes a rendered page safe to open in any browser: nothing in it runs, and
// nothing is fetched but pictures of the message itself (cid:, data:image)
// and files beside the page. The page is rebuilt token by token, so what a
// browser reads is what was checked.

#include <QString>

namespace tessaly::mail {

struct THtmlSanitizeOptions {
    // Pictures of <img> elements (src, srcset) from http and https stay, and
    // the page's policy lets them load.
    bool RemotePictures = false;
    // A Content-Security-Policy meta element opens the head.
    bool ContentSecurityPolicy = true;
};

class THtmlSanitizer {
public:
    // Drops scripts, frames, objects, <base>, <link>, refresh and other
    // http-equiv meta elements, event handlers, form actions, and every
    // reference that runs (javascript:, vbscript:, data:text/html...) or
    // reaches another host; links in the text stay clickable.
    static QString Sanitize(const QString& html, const THtmlSanitizeOptions& options = {});

    // A style sheet or a style attribute's declarations without @import
    // rules, every url() (and image-set() and the like) that would fetch
    // from another host replaced by "none".
    static QString SanitizeCSS(const QString& css);

    // The value of the page's Content-Security-Policy.
    static QString ContentSecurityPolicy(const THtmlSanitizeOptions& options = {});
};

} // namespace tessaly::mail
