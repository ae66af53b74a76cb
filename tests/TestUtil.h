#pragma once

#include <QString>

namespace tessaly::test {

inline QString TestData(const QString& relative)
{
    return QStringLiteral(TESSALY_TESTDATA "/") + relative;
}

} // namespace tessaly::test
