#pragma once

// Pages read by Python's html.parser: a parser that owes nothing to ours.

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <gtest/gtest.h>

namespace tessaly::test {

// For each page: "elements" (tag and attributes, values decoded, in order),
// "anchors" (attributes, text, whether it opened inside another anchor),
// "styles" and "scripts" (the raw contents of each), and "text". Empty
// when python3 is missing.
inline QJsonArray ParseWithPython(const QStringList& pages)
{
    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    if (python.isEmpty())
        return {};
    static const char* Script = R"(
import json, sys
from html.parser import HTMLParser

class Page(HTMLParser):
    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.elements, self.anchors, self.styles, self.scripts, self.text = [], [], [], [], []
        self.anchor = None
    def handle_starttag(self, tag, attrs):
        attrs = [[k, v if v is not None else ''] for k, v in attrs]
        self.elements.append({'tag': tag, 'attrs': attrs})
        if tag == 'a':
            self.anchor = {'attrs': attrs, 'text': '', 'nested': self.anchor is not None}
            self.anchors.append(self.anchor)
        elif tag in ('style', 'script'):
            (self.styles if tag == 'style' else self.scripts).append('')
    def handle_startendtag(self, tag, attrs):
        self.handle_starttag(tag, attrs)
    def handle_endtag(self, tag):
        if tag == 'a':
            self.anchor = None
    def handle_data(self, data):
        raw = getattr(self, 'cdata_elem', None)
        if raw == 'style':
            self.styles[-1] += data
        elif raw == 'script':
            self.scripts[-1] += data
        else:
            self.text.append(data)
            if self.anchor is not None:
                self.anchor['text'] += data

out = []
for page in json.load(sys.stdin):
    p = Page()
    p.feed(page)
    p.close()
    out.append({'elements': p.elements, 'anchors': p.anchors, 'styles': p.styles,
                'scripts': p.scripts, 'text': ''.join(p.text)})
json.dump(out, sys.stdout)
)";
    QProcess process;
    process.start(python, {QStringLiteral("-c"), QString::fromUtf8(Script)});
    process.write(QJsonDocument(QJsonArray::fromStringList(pages)).toJson(QJsonDocument::Compact));
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(60000));
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    const QJsonArray parsed = QJsonDocument::fromJson(process.readAllStandardOutput()).array();
    EXPECT_EQ(parsed.size(), pages.size());
    return parsed;
}

} // namespace tessaly::test
