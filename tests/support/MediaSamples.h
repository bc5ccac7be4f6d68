#pragma once

// Real media for the tests of the media tools, made with ffmpeg once and kept
// in a folder under the system's temporary folder that every test process
// shares (each test runs in a process of its own). The files are read only,
// never changed. Everything is small: a few seconds at small frame sizes.

#include <QString>

namespace velum::test {

class MediaSamples {
public:
    // Makes the files on first use; fails the calling test (and every later
    // one) when ffmpeg cannot make them.
    static const MediaSamples &get();

    QString folder;

    // 4 s of moving pictures, 320×240 at 25 fps in H.264, with AAC sound
    // (mono, 48 kHz), a timecode track starting at 01:00:00:00 and a
    // creation time of 2024-03-01T09:30:00Z. QuickTime.
    QString videoWithAudio;
    // 3 s of pictures without sound, 320×240 at 25 fps. MPEG-4.
    QString videoOnly;
    // 3 s of stereo AAC at 44.1 kHz, no pictures. MPEG-4 audio.
    QString audioOnly;
    // 2 s of PCM at 48 kHz with a broadcast-wave time reference of
    // 172,800,000 samples (one hour).
    QString broadcastWave;
    // 2 s at 30000/1001 fps with a drop-frame timecode of 01:00:00;00.
    QString dropFrame;
    // 0.1 s of pictures.
    QString tooShort;
    // The first half of the bytes of a 4 s Matroska file (100 frames): it
    // still states 4 s, but only the first half decodes.
    QString truncatedMatroska;
    // The first half of an MPEG-4 file whose index sits at its end.
    QString truncatedMp4;
    // 8 s of MPEG-2 pictures (200 frames at 25 fps) in a transport stream,
    // a third of whose middle bytes are noise.
    QString heavilyDamaged;
    // The same with 3 % of its bytes noise, from the middle on.
    QString lightlyDamaged;
    // A text file named like a movie.
    QString textNamedMp4;
    // 8 s of flat colours at 25 fps (200 frames) that change at 0.4, 2, 4
    // and 6 s (frames 10, 50, 100 and 150).
    QString sceneCuts;
    // 5 s of sound: a tone until 1 s, silence to 2.5 s, a tone to 4 s, then
    // silence to the end.
    QString toneAndSilence;
};

} // namespace velum::test
