#include "platform/CodePage.h"

#include <QLocale>

namespace tessaly::platform {

// The code page Windows would use as ANSI code page for the user's language.
int DefaultAnsiCodePage()
{
    const QLocale locale = QLocale::system();
    switch (locale.language()) {
    case QLocale::Japanese: return 932;
    case QLocale::Chinese:
        return locale.script() == QLocale::TraditionalChineseScript || locale.territory() == QLocale::Taiwan
                || locale.territory() == QLocale::HongKong
            ? 950
            : 936;
    case QLocale::Korean: return 949;
    case QLocale::Thai: return 874;
    case QLocale::Vietnamese: return 1258;
    case QLocale::Russian:
    case QLocale::Ukrainian:
    case QLocale::Belarusian:
    case QLocale::Bulgarian:
    case QLocale::Macedonian:
    case QLocale::Kazakh:
        return 1251;
    case QLocale::Serbian: return locale.script() == QLocale::LatinScript ? 1250 : 1251;
    case QLocale::Polish:
    case QLocale::Czech:
    case QLocale::Slovak:
    case QLocale::Hungarian:
    case QLocale::Slovenian:
    case QLocale::Croatian:
    case QLocale::Romanian:
    case QLocale::Albanian:
    case QLocale::Bosnian:
        return 1250;
    case QLocale::Greek: return 1253;
    case QLocale::Turkish:
    case QLocale::Azerbaijani:
        return 1254;
    case QLocale::Hebrew: return 1255;
    case QLocale::Arabic:
    case QLocale::Persian:
    case QLocale::Urdu:
        return 1256;
    case QLocale::Lithuanian:
    case QLocale::Latvian:
    case QLocale::Estonian:
        return 1257;
    default: return 1252;
    }
}

} // namespace tessaly::platform
