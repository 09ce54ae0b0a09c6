#pragma once

#include <QDateTime>
#include <QString>
#include <QtGlobal>

#include <string>
#include <string_view>
#include <vector>

// A streaming reader of XML property lists, for schemas too large to build as a tree. It knows
// the property-list elements and XML's own syntax (comments, processing instructions, a
// DOCTYPE, CDATA, entities and character references) and nothing of what the keys mean: a
// subclass reads the root dictionary with the calls below, picking the values it wants and
// skipping the rest. A skipped value is still checked, so a bad number or date anywhere makes
// the document malformed, as it is for a property-list parser that builds the tree.
//
// Safe on hostile input: malformed XML, truncation, bad numbers or dates and nesting deeper
// than maxDepth end the parse with an error, never a crash or a hang. Reads the bytes in
// place; they must outlive the scanner.
class VEKXMLPropertyListScanner {
public:
    static constexpr int maxDepth = 256;

    enum class Tag : quint8 {
        Other,
        Plist,
        Dict,
        Array,
        Key,
        String,
        Integer,
        Real,
        True,
        False,
        Date,
        Data
    };
    struct StartTag {
        Tag tag = Tag::Other;
        bool empty = false; // <tag/>
    };

    VEKXMLPropertyListScanner(const char *begin, const char *end);
    virtual ~VEKXMLPropertyListScanner() = default;

    VEKXMLPropertyListScanner(const VEKXMLPropertyListScanner &) = delete;
    VEKXMLPropertyListScanner &operator=(const VEKXMLPropertyListScanner &) = delete;

    // The whole document, which must hold one dictionary (inside <plist> or alone). False with
    // error() set when it is not a well-formed property list or the subclass refused it.
    bool parseDocument();
    // What went wrong first, with the byte it was found at.
    const QString &error() const { return m_error; }

protected:
    // Reads the root dictionary's entries and its end tag; its start tag has been read and was
    // not empty.
    virtual bool parseRootDictionary() = 0;

    // Where reading stands, and how far that is through the document (0 to 1). What lies
    // before position() is not read again.
    const char *position() const { return m_p; }
    double progress() const;

    // Records the first fault; always false.
    bool fail(const char *what);

    // Skips white space, comments, processing instructions and declarations.
    bool skipMisc();
    bool atEndTag() const { return m_end - m_p >= 2 && m_p[0] == '<' && m_p[1] == '/'; }
    bool readStartTag(StartTag &t);
    bool readEndTag(Tag expected);

    // A dictionary's next key; the start tag of the value after a key or in an array.
    bool readKey(std::string_view &key);
    bool readValueStart(StartTag &t);
    // Reads past the value whose start tag is `t`, checking it.
    bool skipValue(const StartTag &t);
    // The value of the typed readers, when it has that type; any other value is skipped and
    // leaves `out` as it was (readBool takes numbers too, and sets false for other types).
    // `isString` tells whether the value was a string.
    bool readString(const StartTag &t, QString &out, bool *isString = nullptr);
    bool readInteger(const StartTag &t, qint64 &out); // a real is cut toward zero
    bool readNumber(const StartTag &t, double &out);
    bool readBool(const StartTag &t, bool &out);
    bool readDate(const StartTag &t, QDateTime &out);

private:
    bool startsWith(const char *p, std::string_view s) const;
    const char *find(const char *from, std::string_view s) const;
    bool readText(Tag tag, std::string_view &out);
    bool appendDecoded(const char *b, const char *e);
    bool skipLeaf(Tag tag);
    static bool parseInteger(std::string_view text, qint64 &out);
    static bool parseReal(std::string_view text, double &out);
    static bool parseDate(std::string_view text, QDateTime &out);

    const char *const m_begin;
    const char *m_p;
    const char *const m_end;
    QString m_error;
    std::string m_buf;       // decoded text, when a value needs decoding
    std::vector<Tag> m_skip; // open elements of a value being skipped
};
