#!/usr/bin/env python3
"""Build step: turns the user guide's XHTML into an EPUB 3 for book readers.

    make_epub.py --html GUIDE.html --image ICON.svg --version X.Y.Z --out GUIDE.epub

The guide is one well-formed XHTML file; each <h2 id="..."> becomes an entry of the table of
contents. Only the standard library: the EPUB is a zip whose first entry is the uncompressed
"mimetype".
"""
import argparse
import datetime
import os
import uuid
import xml.etree.ElementTree as ET
import zipfile

XHTML = "http://www.w3.org/1999/xhtml"
NS = {"h": XHTML}


def text_of(element):
    return "".join(element.itertext()).strip()


def escape(text):
    return (text.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;")
            .replace('"', "&quot;"))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--html", required=True)
    parser.add_argument("--image", required=True)
    parser.add_argument("--version", required=True)
    parser.add_argument("--out", required=True)
    args = parser.parse_args()

    with open(args.html, encoding="utf-8") as f:
        source = f.read()
    # Parsing first makes a malformed guide fail the build, not the reader.
    root = ET.fromstring(source)
    title = text_of(root.find("h:head/h:title", NS))
    chapters = [(h.get("id"), text_of(h)) for h in root.iter("{%s}h2" % XHTML) if h.get("id")]
    image_name = os.path.basename(args.image)

    book_id = "urn:uuid:" + str(uuid.uuid5(uuid.NAMESPACE_URL, "quivera-user-guide-" + args.version))
    stamp = os.environ.get("SOURCE_DATE_EPOCH")
    when = (datetime.datetime.fromtimestamp(int(stamp), datetime.timezone.utc) if stamp
            else datetime.datetime.now(datetime.timezone.utc))
    modified = when.strftime("%Y-%m-%dT%H:%M:%SZ")

    container = """<?xml version="1.0" encoding="UTF-8"?>
<container version="1.0" xmlns="urn:oasis:names:tc:opendocument:xmlns:container">
  <rootfiles>
    <rootfile full-path="OEBPS/content.opf" media-type="application/oebps-package+xml"/>
  </rootfiles>
</container>
"""
    opf = f"""<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="book-id">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="book-id">{book_id}</dc:identifier>
    <dc:title>{escape(title)}</dc:title>
    <dc:creator>The Quivera developers</dc:creator>
    <dc:language>en</dc:language>
    <meta property="dcterms:modified">{modified}</meta>
    <meta name="cover" content="cover-image"/>
  </metadata>
  <manifest>
    <item id="nav" href="nav.xhtml" media-type="application/xhtml+xml" properties="nav"/>
    <item id="guide" href="guide.xhtml" media-type="application/xhtml+xml" properties="svg"/>
    <item id="cover-image" href="{image_name}" media-type="image/svg+xml" properties="cover-image"/>
  </manifest>
  <spine>
    <itemref idref="guide"/>
  </spine>
</package>
"""
    entries = "\n".join(f'      <li><a href="guide.xhtml#{cid}">{escape(name)}</a></li>'
                        for cid, name in chapters)
    nav = f"""<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE html>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops" lang="en" xml:lang="en">
<head><title>{escape(title)}</title></head>
<body>
  <nav epub:type="toc" id="toc">
    <h1>Contents</h1>
    <ol>
{entries}
    </ol>
  </nav>
</body>
</html>
"""
    body = source
    if not body.lstrip().startswith("<?xml"):
        body = '<?xml version="1.0" encoding="UTF-8"?>\n' + body

    os.makedirs(os.path.dirname(os.path.abspath(args.out)), exist_ok=True)
    temporary = args.out + ".part"
    with zipfile.ZipFile(temporary, "w") as book:
        book.writestr(zipfile.ZipInfo("mimetype"), "application/epub+zip", zipfile.ZIP_STORED)
        book.writestr("META-INF/container.xml", container, zipfile.ZIP_DEFLATED)
        book.writestr("OEBPS/content.opf", opf, zipfile.ZIP_DEFLATED)
        book.writestr("OEBPS/nav.xhtml", nav, zipfile.ZIP_DEFLATED)
        book.writestr("OEBPS/guide.xhtml", body, zipfile.ZIP_DEFLATED)
        book.write(args.image, "OEBPS/" + image_name, zipfile.ZIP_DEFLATED)
    os.replace(temporary, args.out)


if __name__ == "__main__":
    main()
