#include "io/VEKAudioFileModifier.h"
#include "io/VEKAudioFileReader.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

// A tag write that grows the file must be wholly on disk when commit() returns: the reader that
// opens it next checks that a lossless file reaches its end, and a half-flushed file fails that.
TEST(ReaderSoxFiles, FlacFromSoxOpensBeforeAndAfterATagWrite)
{
    const QString path = TestEnvironment::makeSine(TestEnvironment::makeTempDir() + QStringLiteral("/sox.flac"), 1.0);
    VEKError error;
    auto reader = VEKAudioFileReader::open(path, &error);
    ASSERT_TRUE(reader) << error.text().toStdString();
    EXPECT_EQ(reader->frames(), 44100u);

    auto modifier = VEKAudioFileModifier::open(path, &error);
    ASSERT_TRUE(modifier);
    modifier->setValue(QStringLiteral("title"), QStringLiteral("Night"));
    ASSERT_TRUE(modifier->commit(&error)) << error.text().toStdString();
    reader = VEKAudioFileReader::open(path, &error);
    ASSERT_TRUE(reader) << error.text().toStdString();
    EXPECT_EQ(reader->metadata().value(QStringLiteral("title")).toString(), QStringLiteral("Night"));
    EXPECT_EQ(reader->frames(), 44100u);
}
