#pragma once

#include <QString>
#include <vector>

// The LV2 world the tests see: LV2_PATH set to the Debian bundles in /usr/lib/lv2 and to a
// bundle of small test plugins compiled here from fixtures/, before anything makes the world.
namespace LV2Fixtures {

inline const QString kAmp = QStringLiteral("http://plugin.org.uk/swh-plugins/amp");
inline const QString kHilbert = QStringLiteral("http://plugin.org.uk/swh-plugins/hilbert");
inline const QString kOverdrive = QStringLiteral("http://drobilla.net/plugins/mda/Overdrive");
inline const QString kSynth = QStringLiteral("http://drobilla.net/plugins/mda/JX10");
inline const QString kMidiGain = QStringLiteral("urn:quivera:test:midigain");
inline const QString kNeedsWorker = QStringLiteral("urn:quivera:test:needsworker");
inline const QString kRefuses = QStringLiteral("urn:quivera:test:refuses");

// Idempotent; fails the current test if the test bundle cannot be built.
void setUp();

// A signal with no two neighbouring samples alike, different per channel and seed.
std::vector<float> signal(size_t frames, int seed);

} // namespace LV2Fixtures
