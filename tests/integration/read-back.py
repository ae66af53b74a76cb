#!/usr/bin/python3
"""Reads exported files back with readers that owe nothing to Tessaly.

Each file named on the command line is read by its extension; standard
output is one JSON object, by path, of what the reader found:

  .eml    Python's email package: "subject" (null when absent), "parts"
  .mbox   Python's mailbox: "subjects", one per message, in order
  .html   Python's html.parser: "title" and the header block's "subject"
          (a message) or "name" (a contact card)
  .xhtml  xml.etree (the page must be well-formed XML): the same fields;
          with --xml first, .html files are read so as well, into "xml"
  .txt    the "Subject:" line of the header lines
  .vcf    vobject: "cards", each with "fn" and "emails"
  .ics    icalendar: "events", each with "summary", "start" and "end" in UTC
  .pdf    pdftotext: "text"

A file its reader refuses gets "error" with the reason, and the others are
still read. Subjects are given with runs of white space made one space.
"""

import datetime
import email
import email.policy
import json
import mailbox
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from html.parser import HTMLParser


def spaced(text):
    return ' '.join(str(text).split())


def read_eml(path):
    with open(path, 'rb') as f:
        message = email.message_from_binary_file(f, policy=email.policy.default)
    parts = 0
    for part in message.walk():
        if not part.is_multipart():
            part.get_content()  # raises when a part does not decode
            parts += 1
    subject = message['subject']
    return {'subject': None if subject is None else spaced(subject), 'parts': parts}


def read_mbox(path):
    box = mailbox.mbox(path, create=False,
                       factory=lambda f: email.message_from_binary_file(f, policy=email.policy.default))
    subjects = []
    for message in box:
        subject = message['subject']
        subjects.append(None if subject is None else spaced(subject))
    return {'subjects': subjects}


class HeaderBlock:
    """The rows of the page's header table: caption and value cells."""

    def __init__(self):
        self.rows = []
        self.title = None

    def fields(self):
        out = {}
        for cells in self.rows:
            if len(cells) >= 2:
                caption = spaced(cells[0]).rstrip(':').strip()
                out.setdefault(caption, spaced(cells[1]))
        return out

    def result(self):
        fields = self.fields()
        out = {'title': self.title}
        if 'Subject' in fields:
            out['subject'] = fields['Subject']
        if 'Name' in fields:
            out['name'] = fields['Name']
        return out


class HtmlPage(HTMLParser):
    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.block = HeaderBlock()
        self.cells = None   # cells of the row being read
        self.cell = None    # text of the cell being read
        self.tables = 0     # depth in the header table
        self.done = False
        self.in_title = False

    def handle_starttag(self, tag, attrs):
        if tag == 'title':
            self.in_title = True
            self.block.title = ''
        elif tag == 'table' and not self.done:
            if self.tables or dict(attrs).get('id') == 'header_table':
                self.tables += 1
        elif self.tables == 1 and tag == 'tr':
            self.cells = []
        elif self.tables == 1 and tag == 'td' and self.cells is not None:
            self.cell = ''

    def handle_endtag(self, tag):
        if tag == 'title':
            self.in_title = False
        elif tag == 'table' and self.tables:
            self.tables -= 1
            self.done = self.tables == 0
        elif self.tables == 1 and tag == 'td' and self.cell is not None:
            self.cells.append(self.cell)
            self.cell = None
        elif self.tables == 1 and tag == 'tr' and self.cells is not None:
            self.block.rows.append(self.cells)
            self.cells = None

    def handle_data(self, data):
        if self.in_title:
            self.block.title += data
        if self.cell is not None:
            self.cell += data


def read_html(path):
    page = HtmlPage()
    with open(path, encoding='utf-8') as f:
        page.feed(f.read())
    page.close()
    return page.block.result()


def local(tag):
    return tag.rsplit('}', 1)[-1]


def read_xhtml(path):
    tree = ElementTree.parse(path)  # raises when the page is no well-formed XML
    block = HeaderBlock()
    for element in tree.iter():
        if local(element.tag) == 'title':
            block.title = ''.join(element.itertext())
    for table in tree.iter():
        if local(table.tag) == 'table' and table.get('id') == 'header_table':
            for row in table.iter():
                if local(row.tag) == 'tr':
                    block.rows.append([''.join(cell.itertext()) for cell in row if local(cell.tag) == 'td'])
            break
    return block.result()


def read_txt(path):
    with open(path, encoding='utf-8') as f:
        text = f.read()
    header = text.split('\n\n', 1)[0]
    for line in header.split('\n'):
        if line.startswith('Subject: '):
            return {'subject': spaced(line[len('Subject: '):])}
    return {'subject': None}


def read_vcf(path):
    import vobject
    with open(path, encoding='utf-8') as f:
        cards = list(vobject.readComponents(f.read()))
    return {'cards': [{'fn': card.fn.value if hasattr(card, 'fn') else None,
                       'emails': [e.value for e in card.contents.get('email', [])]} for card in cards]}


def read_ics(path):
    import icalendar
    with open(path, 'rb') as f:
        calendar = icalendar.Calendar.from_ical(f.read())

    def utc(event, name):
        if name not in event:
            return None
        value = event.decoded(name)
        if not isinstance(value, datetime.datetime):
            return value.isoformat()  # a date: an all-day event
        return value.astimezone(datetime.timezone.utc).strftime('%Y-%m-%dT%H:%M:%SZ')

    return {'events': [{'summary': str(event.get('summary', '')), 'start': utc(event, 'dtstart'),
                        'end': utc(event, 'dtend')} for event in calendar.walk('VEVENT')]}


def read_pdf(path):
    # -raw: the text in the order it is drawn, a hyphen that ends a line
    # kept. The default layout mode takes such a hyphen for a word broken
    # across lines and drops it: a subject "PDT) - Green" wrapped after the
    # "-" came out as "PDT) Green".
    run = subprocess.run(['pdftotext', '-raw', '-enc', 'UTF-8', path, '-'], capture_output=True)
    if run.returncode != 0:
        raise ValueError('pdftotext: ' + run.stderr.decode(errors='replace').strip())
    return {'text': spaced(run.stdout.decode('utf-8', errors='replace'))}


READERS = {'eml': read_eml, 'mbox': read_mbox, 'html': read_html, 'xhtml': read_xhtml, 'txt': read_txt,
           'vcf': read_vcf, 'ics': read_ics, 'pdf': read_pdf}


def read(reader, path):
    try:
        return reader(path) if reader else {'error': 'no reader for this extension'}
    except Exception as error:  # one file's fault is reported, the rest still read
        return {'error': '%s: %s' % (type(error).__name__, error)}


def main():
    paths = sys.argv[1:]
    xml = paths[:1] == ['--xml']
    out = {}
    for path in paths[1:] if xml else paths:
        extension = path.rsplit('.', 1)[-1].lower()
        out[path] = read(READERS.get(extension), path)
        if xml and extension == 'html':
            out[path]['xml'] = read(read_xhtml, path)
    json.dump(out, sys.stdout)


if __name__ == '__main__':
    main()
