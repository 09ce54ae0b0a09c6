#include "core/VEKPaths.h"

#include <gtest/gtest.h>

// Every byte string a file name can be comes back as itself; valid UTF-8 reads as plain text and
// the bytes that are not part of it read as Windows-1252.
TEST(VEKPaths, NamesRoundTripByteForByteAndReadAsText)
{
    const struct {
        QByteArray bytes;
        const char *readable; // UTF-8
    } cases[] = {
        {"plain/Caf\xc3\xa9 \xf0\x9f\x8e\xb5.flac", "plain/Caf\xc3\xa9 \xf0\x9f\x8e\xb5.flac"},
        {"caf\xe9.flac", "caf\xc3\xa9.flac"},                   // Latin-1
        {"\x80\x81 \x9f", "\xe2\x82\xac\xef\xbf\xbd \xc5\xb8"}, // Windows-1252, with a hole
        {"\xed\xb3\xa9", "\xc3\xad\xc2\xb3\xc2\xa9"},           // an encoded surrogate is no character
        {"\xc0\xaf \xe0\x80\xaf", "\xc3\x80\xc2\xaf \xc3\xa0\xe2\x82\xac\xc2\xaf"}, // overlong
        {"\xf4\x90\x80\x80", "\xc3\xb4\xef\xbf\xbd\xe2\x82\xac\xe2\x82\xac"},       // beyond U+10FFFF
        {"\xc3", "\xc3\x83"},                                                       // cut short at the end
        {"\xe2\x82x", "\xc3\xa2\xe2\x80\x9ax"},                                     // cut short inside
    };
    for (const auto &c : cases) {
        const QString kept = VEKPaths::fromNative(c.bytes);
        EXPECT_EQ(VEKPaths::native(kept), c.bytes) << c.bytes.toHex().constData();
        EXPECT_EQ(VEKPaths::readable(kept), QString::fromUtf8(c.readable)) << c.bytes.toHex().constData();
    }
    // Text that came from elsewhere (a pair of surrogates, a lone one outside the kept range)
    // is written as UTF-8 as before.
    const QString emoji = QString::fromUtf8("\xf0\x9f\x8e\xb5");
    EXPECT_EQ(VEKPaths::native(emoji), emoji.toUtf8());
}
