#include "VEKXMLPropertyListScanner.h"

#include <charconv>
#include <cstring>
#include <limits>

namespace {

using Tag = VEKXMLPropertyListScanner::Tag;

bool isContainer(Tag t)
{
    return t == Tag::Dict || t == Tag::Array || t == Tag::Plist;
}

Tag tagForName(std::string_view n)
{
    switch (n.size()) {
    case 3:
        if (n == "key")
            return Tag::Key;
        break;
    case 4:
        if (n == "dict")
            return Tag::Dict;
        if (n == "true")
            return Tag::True;
        if (n == "date")
            return Tag::Date;
        if (n == "real")
            return Tag::Real;
        if (n == "data")
            return Tag::Data;
        break;
    case 5:
        if (n == "array")
            return Tag::Array;
        if (n == "false")
            return Tag::False;
        if (n == "plist")
            return Tag::Plist;
        break;
    case 6:
        if (n == "string")
            return Tag::String;
        break;
    case 7:
        if (n == "integer")
            return Tag::Integer;
        break;
    }
    return Tag::Other;
}

bool isSpace(char c)
{
    return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

bool isNameChar(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ':'
           || c == '-' || c == '.' || static_cast<unsigned char>(c) >= 0x80;
}

std::string_view trimmed(std::string_view v)
{
    while (!v.empty() && isSpace(v.front()))
        v.remove_prefix(1);
    while (!v.empty() && isSpace(v.back()))
        v.remove_suffix(1);
    return v;
}

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar.
qint64 daysFromCivil(qint64 y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const qint64 era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = unsigned(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + qint64(doe) - 719468;
}

} // namespace

VEKXMLPropertyListScanner::VEKXMLPropertyListScanner(const char *begin, const char *end)
    : m_begin(begin), m_p(begin), m_end(end)
{}

double VEKXMLPropertyListScanner::progress() const
{
    return double(m_p - m_begin) / double(qMax<qsizetype>(1, m_end - m_begin));
}

bool VEKXMLPropertyListScanner::fail(const char *what)
{
    if (m_error.isEmpty())
        m_error = QStringLiteral("%1 (byte %2)").arg(QLatin1String(what)).arg(m_p - m_begin);
    return false;
}

bool VEKXMLPropertyListScanner::startsWith(const char *p, std::string_view s) const
{
    return m_end - p >= qsizetype(s.size()) && std::memcmp(p, s.data(), s.size()) == 0;
}

const char *VEKXMLPropertyListScanner::find(const char *from, std::string_view s) const
{
    if (from >= m_end)
        return nullptr;
    return static_cast<const char *>(memmem(from, size_t(m_end - from), s.data(), s.size()));
}

bool VEKXMLPropertyListScanner::skipMisc()
{
    for (;;) {
        while (m_p < m_end && isSpace(*m_p))
            ++m_p;
        if (m_end - m_p < 2 || m_p[0] != '<')
            return true;
        if (startsWith(m_p, "<!--")) {
            const char *close = find(m_p + 4, "-->");
            if (!close)
                return fail("unterminated comment");
            m_p = close + 3;
        } else if (m_p[1] == '?') {
            const char *close = find(m_p + 2, "?>");
            if (!close)
                return fail("unterminated processing instruction");
            m_p = close + 2;
        } else if (m_p[1] == '!') {
            if (startsWith(m_p, "<![CDATA["))
                return fail("text where an element was expected");
            // A declaration (DOCTYPE), possibly with an internal subset in brackets.
            const char *q = m_p + 2;
            int brackets = 0;
            for (;; ++q) {
                if (q >= m_end)
                    return fail("unterminated declaration");
                const char c = *q;
                if (c == '"' || c == '\'') {
                    const void *close = std::memchr(q + 1, c, size_t(m_end - q - 1));
                    if (!close)
                        return fail("unterminated declaration");
                    q = static_cast<const char *>(close);
                } else if (c == '[') {
                    ++brackets;
                } else if (c == ']') {
                    --brackets;
                } else if (c == '>' && brackets <= 0) {
                    break;
                }
            }
            m_p = q + 1;
        } else {
            return true;
        }
    }
}

bool VEKXMLPropertyListScanner::readStartTag(StartTag &t)
{
    if (!skipMisc())
        return false;
    if (m_p >= m_end)
        return fail("unexpected end of file");
    if (*m_p != '<')
        return fail("text where an element was expected");
    if (m_end - m_p >= 2 && m_p[1] == '/')
        return fail("unexpected end tag");
    const char *name = m_p + 1;
    const char *q = name;
    while (q < m_end && isNameChar(*q))
        ++q;
    t.tag = tagForName(std::string_view(name, size_t(q - name)));
    if (t.tag == Tag::Other)
        return fail("unknown element");
    while (q < m_end) {
        const char c = *q;
        if (c == '>') {
            t.empty = false;
            m_p = q + 1;
            return true;
        }
        if (c == '/') {
            if (q + 1 < m_end && q[1] == '>') {
                t.empty = true;
                m_p = q + 2;
                return true;
            }
            return fail("bad element");
        }
        if (c == '"' || c == '\'') {
            const void *close = std::memchr(q + 1, c, size_t(m_end - q - 1));
            if (!close)
                return fail("unexpected end of file");
            q = static_cast<const char *>(close) + 1;
            continue;
        }
        if (c == '<')
            return fail("bad element");
        ++q;
    }
    return fail("unexpected end of file");
}

bool VEKXMLPropertyListScanner::readEndTag(Tag expected)
{
    if (!atEndTag())
        return fail("end tag expected");
    const char *name = m_p + 2;
    const char *q = name;
    while (q < m_end && isNameChar(*q))
        ++q;
    if (tagForName(std::string_view(name, size_t(q - name))) != expected)
        return fail("mismatched end tag");
    while (q < m_end && isSpace(*q))
        ++q;
    if (q >= m_end || *q != '>')
        return fail("bad end tag");
    m_p = q + 1;
    return true;
}

bool VEKXMLPropertyListScanner::appendDecoded(const char *b, const char *e)
{
    while (b < e) {
        const char c = *b;
        if (c == '\r') {
            // XML reads every line end as a line feed.
            m_buf.push_back('\n');
            b += (b + 1 < e && b[1] == '\n') ? 2 : 1;
            continue;
        }
        if (c != '&') {
            const char *stop = b;
            while (stop < e && *stop != '&' && *stop != '\r')
                ++stop;
            m_buf.append(b, size_t(stop - b));
            b = stop;
            continue;
        }
        const char *semi = b + 1;
        while (semi < e && semi - b <= 12 && *semi != ';')
            ++semi;
        if (semi >= e || *semi != ';')
            return fail("bad entity");
        const std::string_view name(b + 1, size_t(semi - b - 1));
        if (name == "amp") {
            m_buf.push_back('&');
        } else if (name == "lt") {
            m_buf.push_back('<');
        } else if (name == "gt") {
            m_buf.push_back('>');
        } else if (name == "quot") {
            m_buf.push_back('"');
        } else if (name == "apos") {
            m_buf.push_back('\'');
        } else if (name.size() >= 2 && name[0] == '#') {
            const bool hex = name[1] == 'x';
            const std::string_view digits = name.substr(hex ? 2 : 1);
            quint32 code = 0;
            const auto r = std::from_chars(digits.data(), digits.data() + digits.size(), code, hex ? 16 : 10);
            if (digits.empty() || r.ec != std::errc() || r.ptr != digits.data() + digits.size() || code == 0
                || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff))
                return fail("bad character reference");
            if (code < 0x80) {
                m_buf.push_back(char(code));
            } else if (code < 0x800) {
                m_buf.push_back(char(0xc0 | (code >> 6)));
                m_buf.push_back(char(0x80 | (code & 0x3f)));
            } else if (code < 0x10000) {
                m_buf.push_back(char(0xe0 | (code >> 12)));
                m_buf.push_back(char(0x80 | ((code >> 6) & 0x3f)));
                m_buf.push_back(char(0x80 | (code & 0x3f)));
            } else {
                m_buf.push_back(char(0xf0 | (code >> 18)));
                m_buf.push_back(char(0x80 | ((code >> 12) & 0x3f)));
                m_buf.push_back(char(0x80 | ((code >> 6) & 0x3f)));
                m_buf.push_back(char(0x80 | (code & 0x3f)));
            }
        } else {
            return fail("unknown entity");
        }
        b = semi + 1;
    }
    return true;
}

// The content of a leaf element up to its end tag. The result points into the file when the
// text needs no decoding, else into m_buf; it lasts until the next call.
bool VEKXMLPropertyListScanner::readText(Tag tag, std::string_view &out)
{
    bool assembled = false;
    m_buf.clear();
    for (;;) {
        const void *found = m_p < m_end ? std::memchr(m_p, '<', size_t(m_end - m_p)) : nullptr;
        if (!found)
            return fail("unexpected end of file");
        const char *lt = static_cast<const char *>(found);
        const size_t length = size_t(lt - m_p);
        const bool plain = !std::memchr(m_p, '&', length) && !std::memchr(m_p, '\r', length);
        if (lt + 1 < m_end && lt[1] == '/') {
            if (!assembled && plain) {
                out = std::string_view(m_p, length);
            } else {
                if (!appendDecoded(m_p, lt))
                    return false;
                out = m_buf;
            }
            m_p = lt;
            return readEndTag(tag);
        }
        if (!appendDecoded(m_p, lt))
            return false;
        assembled = true;
        m_p = lt;
        if (startsWith(lt, "<![CDATA[")) {
            const char *close = find(lt + 9, "]]>");
            if (!close)
                return fail("unterminated CDATA section");
            m_buf.append(lt + 9, size_t(close - lt - 9));
            m_p = close + 3;
        } else if (startsWith(lt, "<!--")) {
            const char *close = find(lt + 4, "-->");
            if (!close)
                return fail("unterminated comment");
            m_p = close + 3;
        } else if (startsWith(lt, "<?")) {
            const char *close = find(lt + 2, "?>");
            if (!close)
                return fail("unterminated processing instruction");
            m_p = close + 2;
        } else {
            return fail("an element inside a value");
        }
    }
}

bool VEKXMLPropertyListScanner::readKey(std::string_view &key)
{
    StartTag t;
    if (!readStartTag(t))
        return false;
    if (t.tag != Tag::Key)
        return fail("a dictionary entry without a key");
    if (t.empty) {
        key = {};
        return true;
    }
    return readText(Tag::Key, key);
}

bool VEKXMLPropertyListScanner::readValueStart(StartTag &t)
{
    if (!readStartTag(t))
        return false;
    if (t.tag == Tag::Key || t.tag == Tag::Plist)
        return fail("a key where a value was expected");
    return true;
}

// A value that is not used is still checked: a file with a bad number or date anywhere is
// not a property list, whichever keys the read-in looks at.
bool VEKXMLPropertyListScanner::skipLeaf(Tag tag)
{
    std::string_view text;
    if (!readText(tag, text))
        return false;
    qint64 i = 0;
    double d = 0;
    QDateTime date;
    switch (tag) {
    case Tag::Integer: return parseInteger(text, i) || fail("a bad integer");
    case Tag::Real: return parseReal(text, d) || fail("a bad real number");
    case Tag::Date: return parseDate(text, date) || fail("a bad date");
    default: return true;
    }
}

bool VEKXMLPropertyListScanner::skipValue(const StartTag &t)
{
    if (t.empty)
        return true;
    if (!isContainer(t.tag))
        return skipLeaf(t.tag);
    m_skip.clear();
    m_skip.push_back(t.tag);
    while (!m_skip.empty()) {
        if (!skipMisc())
            return false;
        if (atEndTag()) {
            if (!readEndTag(m_skip.back()))
                return false;
            m_skip.pop_back();
            continue;
        }
        StartTag inner;
        if (!readStartTag(inner))
            return false;
        if (inner.tag == Tag::Plist)
            return fail("a plist inside a value");
        if (inner.empty)
            continue;
        if (isContainer(inner.tag)) {
            if (m_skip.size() >= size_t(maxDepth))
                return fail("nested too deeply");
            m_skip.push_back(inner.tag);
        } else if (!skipLeaf(inner.tag)) {
            return false;
        }
    }
    return true;
}

bool VEKXMLPropertyListScanner::readString(const StartTag &t, QString &out, bool *isString)
{
    if (isString)
        *isString = t.tag == Tag::String;
    if (t.tag != Tag::String)
        return skipValue(t);
    if (t.empty) {
        out = QStringLiteral("");
        return true;
    }
    std::string_view text;
    if (!readText(Tag::String, text))
        return false;
    out = QString::fromUtf8(text.data(), qsizetype(text.size()));
    return true;
}

bool VEKXMLPropertyListScanner::parseInteger(std::string_view text, qint64 &out)
{
    text = trimmed(text);
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty())
        return false;
    quint64 value = 0;
    const auto r = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (r.ptr != text.data() + text.size())
        return false;
    // Values beyond 64 bits are kept at the limit rather than refused.
    if (r.ec == std::errc::result_out_of_range || value > quint64(std::numeric_limits<qint64>::max()))
        value = quint64(std::numeric_limits<qint64>::max());
    else if (r.ec != std::errc())
        return false;
    out = negative ? -qint64(value) : qint64(value);
    return true;
}

bool VEKXMLPropertyListScanner::parseReal(std::string_view text, double &out)
{
    text = trimmed(text);
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    if (text.empty())
        return false;
    const auto r = std::from_chars(text.data(), text.data() + text.size(), out);
    return r.ptr == text.data() + text.size()
           && (r.ec == std::errc() || r.ec == std::errc::result_out_of_range);
}

// "2012-03-04T05:06:07Z", and the shorter forms that leave out the smaller fields.
bool VEKXMLPropertyListScanner::parseDate(std::string_view text, QDateTime &out)
{
    text = trimmed(text);
    if (text.empty() || text.back() != 'Z')
        return false;
    text.remove_suffix(1);
    int fields[6] = {0, 1, 1, 0, 0, 0};
    static const char separators[6] = {0, '-', '-', 'T', ':', ':'};
    size_t pos = 0;
    for (int i = 0; i < 6 && pos < text.size(); ++i) {
        if (i > 0) {
            if (text[pos] != separators[i])
                return false;
            ++pos;
        }
        const size_t width = i == 0 ? 4 : 2;
        if (pos + width > text.size())
            return false;
        int v = 0;
        for (size_t k = 0; k < width; ++k) {
            const char c = text[pos + k];
            if (c < '0' || c > '9')
                return false;
            v = v * 10 + (c - '0');
        }
        fields[i] = v;
        pos += width;
    }
    if (pos != text.size() || fields[1] < 1 || fields[1] > 12 || fields[2] < 1 || fields[2] > 31
        || fields[3] > 23 || fields[4] > 59 || fields[5] > 60)
        return false;
    const qint64 days = daysFromCivil(fields[0], unsigned(fields[1]), unsigned(fields[2]));
    const qint64 seconds = days * 86400 + fields[3] * 3600 + fields[4] * 60 + fields[5];
    out = QDateTime::fromMSecsSinceEpoch(seconds * 1000, Qt::UTC);
    return true;
}

bool VEKXMLPropertyListScanner::readInteger(const StartTag &t, qint64 &out)
{
    if ((t.tag != Tag::Integer && t.tag != Tag::Real) || t.empty) {
        if (t.tag == Tag::Integer || t.tag == Tag::Real)
            return fail("an empty number");
        return skipValue(t);
    }
    std::string_view text;
    if (!readText(t.tag, text))
        return false;
    if (t.tag == Tag::Integer) {
        if (!parseInteger(text, out))
            return fail("a bad integer");
        return true;
    }
    double d = 0;
    if (!parseReal(text, d))
        return fail("a bad real number");
    out = d >= 9.2e18 ? std::numeric_limits<qint64>::max()
                      : (d <= -9.2e18 ? std::numeric_limits<qint64>::min() : qint64(d));
    return true;
}

bool VEKXMLPropertyListScanner::readNumber(const StartTag &t, double &out)
{
    if (t.tag == Tag::Integer) {
        qint64 v = 0;
        if (!readInteger(t, v))
            return false;
        out = double(v);
        return true;
    }
    if (t.tag != Tag::Real)
        return skipValue(t);
    std::string_view text;
    if (t.empty || !readText(Tag::Real, text))
        return t.empty ? fail("an empty number") : false;
    if (!parseReal(text, out))
        return fail("a bad real number");
    return true;
}

bool VEKXMLPropertyListScanner::readBool(const StartTag &t, bool &out)
{
    if (t.tag == Tag::True || t.tag == Tag::False) {
        out = t.tag == Tag::True;
        return skipValue(t);
    }
    if (t.tag == Tag::Integer || t.tag == Tag::Real) {
        double v = 0;
        if (!readNumber(t, v))
            return false;
        out = v != 0;
        return true;
    }
    out = false;
    return skipValue(t);
}

bool VEKXMLPropertyListScanner::readDate(const StartTag &t, QDateTime &out)
{
    if (t.tag != Tag::Date)
        return skipValue(t);
    std::string_view text;
    if (t.empty || !readText(Tag::Date, text))
        return t.empty ? fail("an empty date") : false;
    if (!parseDate(text, out))
        return fail("a bad date");
    return true;
}

bool VEKXMLPropertyListScanner::parseDocument()
{
    if (startsWith(m_p, "\xEF\xBB\xBF"))
        m_p += 3;
    StartTag t;
    if (!readStartTag(t))
        return false;
    const bool wrapped = t.tag == Tag::Plist;
    if (wrapped) {
        if (t.empty)
            return fail("an empty property list");
        if (!readStartTag(t))
            return false;
    }
    if (t.tag != Tag::Dict)
        return fail("the root is not a dictionary");
    if (!t.empty && !parseRootDictionary())
        return false;
    if (!skipMisc())
        return false;
    if (wrapped) {
        if (!atEndTag())
            return fail("more than one value in the property list");
        if (!readEndTag(Tag::Plist) || !skipMisc())
            return false;
    }
    if (m_p != m_end)
        return fail("text after the property list");
    return true;
}
