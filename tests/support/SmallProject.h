#pragma once

#include "support/TempDir.h"

#include "model/Project.h"

#include <QString>

namespace velum::test {

struct SmallProjectOptions {
    // Where the clips' files are said to be.
    QString mediaFolder = QStringLiteral("/media");
    // Whether clip "a" has sound (AAC, 48 kHz, stereo).
    bool cameraSound = false;
    // Whether to write placeholder files at those places.
    bool placeholders = false;
};

// A finished project folder: clips "a" (8 words over 6 s of 25 fps 1920×1080
// media, a filler and a stored manual cut of positions 5 and 6, synced to the
// microphone at 1.5 s) and "b" (4 words over 3 s of 24 fps 1080×1920 media),
// and the microphone "mic" (20 s with a one-hour time reference).
void writeSmallProject(const TempDir &dir, const SmallProjectOptions &options = {});

// The media of a camera clip: H.264 pictures with AAC sound, 48 kHz stereo.
ClipMedia cameraMedia(const QString &clipId, double durationS, double fps = 25, int width = 1920, int height = 1080);

} // namespace velum::test
