#pragma once

// Speech for the tests of audio sync, spoken by espeak-ng and mixed with
// ffmpeg once into a folder under the system's temporary folder that every
// test process shares. The takes are what a camera would record; the
// external track is what a separate microphone recorded meanwhile: every
// take at a known place, at another level and sample rate, over noise.

#include <QString>

namespace velum::test {

class SpeechSamples {
public:
    // Makes the files on first use; fails the calling test (and every later
    // one) when espeak-ng or ffmpeg cannot make them.
    static const SpeechSamples &get();

    QString folder;

    // 85 s at 48 kHz, mono, 16-bit WAV: pink noise, the three placed takes
    // at their offsets, the doubled take at 55 s and again at 70 s, and the
    // second half of `early` at 0 s, all at 60 % of their level.
    QString external;

    // Takes of a few sentences each in different voices and speeds, 22,050 Hz
    // WAV as espeak-ng writes them, and where the external track holds them.
    // The places fall on whole envelope steps of 5 ms: between two steps the
    // envelopes of the two recordings are sampled differently (a synthetic
    // voice's pitch period is longer than a step), and the match may then be
    // off by up to two steps.
    QString take1;
    QString take2;
    QString take3;
    static constexpr double take1OffsetS = 3.215;
    static constexpr double take2OffsetS = 21.5;
    static constexpr double take3OffsetS = 40.03;

    // Speech the external track does not hold.
    QString unmatched;
    // Speech the external track holds twice, 15 s apart.
    QString doubled;
    // Two sentences of which the track holds only the second, from its very
    // start: the take began before the external recording.
    QString early;
    // 4 s of digital silence.
    QString silent;

    // Two 1 s clips of sound with a creation time in their metadata:
    // `morning` at 2024-05-01T08:00:00Z, `evening` at 2024-05-01T19:00:00Z.
    QString morning;
    QString evening;
};

} // namespace velum::test
