#include "support/SpeechSamples.h"

#include "support/SharedFolder.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QStringList>

#include <optional>

namespace velum::test {

namespace {

bool speak(const QString &voice, int wordsPerMinute, const QString &text, const QString &to, QString &error)
{
    return runTool(QStringLiteral("espeak-ng"),
                   {"-v", voice, "-s", QString::number(wordsPerMinute), "-w", to, text}, error);
}

void assign(SpeechSamples &s, const QString &path)
{
    const QDir dir(path);
    const auto at = [&](const char *name) { return dir.filePath(QString::fromLatin1(name)); };
    s.folder = dir.path();
    s.external = at("external.wav");
    s.take1 = at("take1.wav");
    s.take2 = at("take2.wav");
    s.take3 = at("take3.wav");
    s.unmatched = at("unmatched.wav");
    s.doubled = at("doubled.wav");
    s.early = at("early.wav");
    s.silent = at("silent.wav");
    s.morning = at("morning.m4a");
    s.evening = at("evening.m4a");
}

// Makes every file of `s` in `folder`.
bool make(const SpeechSamples &s, const QString &folder, QString &error)
{
    const QDir dir(folder);
    const QString before = dir.filePath(QStringLiteral("before.wav"));
    const QString after = dir.filePath(QStringLiteral("after.wav"));
    // Each spoken take is resampled to the recorder's rate, delayed to
    // its place and lowered; the noise runs under all of it.
    const auto placed = [](int input, int delayMs) {
        return QStringLiteral("[%1]aresample=48000,adelay=%2,volume=0.6[s%1];").arg(input).arg(delayMs);
    };
    const bool ok =
        speak("en-us", 150,
              "The morning light came slowly over the hills. We packed the car and drove north along the "
              "river road.",
              s.take1, error)
        && speak("en-gb", 175,
                 "Nobody had told us that the bridge was closed. So we waited by the water and counted the "
                 "boats going by.",
                 s.take2, error)
        && speak("en-us+f3", 130,
                 "In the end the ferry took us across. It was late, and the town was already asleep.", s.take3,
                 error)
        && speak("en-gb-scotland", 160,
                 "Seven green bottles stood on the kitchen shelf, and one of them was full of buttons.",
                 s.unmatched, error)
        && speak("en-us", 190, "Check one two, check one two. Are we rolling yet?", s.doubled, error)
        && speak("en-gb-x-rp", 150, "Is this thing on? Let me start again.", before, error)
        && speak("en-us+m3", 140, "Welcome back to the workshop, today we build a bird house.", after, error)
        && ffmpeg({"-i", before, "-i", after, "-filter_complex", "[0][1]concat=n=2:v=0:a=1", s.early}, error)
        && ffmpeg({"-f", "lavfi", "-i", "anullsrc=r=22050:cl=mono", "-t", "4", "-c:a", "pcm_s16le", s.silent},
                  error)
        && ffmpeg({"-i", s.take1, "-i", s.take2, "-i", s.take3, "-i", s.doubled, "-i", s.doubled, "-i", after,
                   "-f", "lavfi", "-i", "anoisesrc=r=48000:c=pink:a=0.03:seed=7:d=85", "-filter_complex",
                   placed(0, 3215) + placed(1, 21500) + placed(2, 40030) + placed(3, 55000)
                       + placed(4, 70000) + placed(5, 0)
                       + "[s0][s1][s2][s3][s4][s5][6]amix=inputs=7:normalize=0:duration=longest",
                   "-ac", "1", "-c:a", "pcm_s16le", s.external},
                  error)
        && ffmpeg({"-f", "lavfi", "-i", "sine=frequency=440:sample_rate=16000:duration=1", "-c:a", "aac",
                   "-metadata", "creation_time=2024-05-01T08:00:00Z", s.morning},
                  error)
        && ffmpeg({"-f", "lavfi", "-i", "sine=frequency=550:sample_rate=16000:duration=1", "-c:a", "aac",
                   "-metadata", "creation_time=2024-05-01T19:00:00Z", s.evening},
                  error);
    QFile::remove(before);
    QFile::remove(after);
    return ok;
}
} // namespace

const SpeechSamples &SpeechSamples::get()
{
    return sharedSamples<SpeechSamples>(QStringLiteral("velum-test-speech-v1"), "the speech samples", assign, make);
}

} // namespace velum::test
