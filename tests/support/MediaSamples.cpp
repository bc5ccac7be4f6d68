#include "support/MediaSamples.h"

#include "support/SharedFolder.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QStringList>
#include <QFileInfo>

#include <cstdint>
#include <optional>

namespace velum::test {

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeAll(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

bool halve(const QString &from, const QString &to)
{
    const QByteArray bytes = readAll(from);
    return !bytes.isEmpty() && writeAll(to, bytes.left(bytes.size() / 2));
}

// Overwrites [start, start + length) of a copy with noise from a fixed seed,
// so that the damage is the same at every run.
bool damage(const QString &from, const QString &to, double startFraction, double lengthFraction)
{
    QByteArray bytes = readAll(from);
    if (bytes.isEmpty())
        return false;
    const auto start = static_cast<qsizetype>(static_cast<double>(bytes.size()) * startFraction);
    const auto length = static_cast<qsizetype>(static_cast<double>(bytes.size()) * lengthFraction);
    std::uint32_t state = 0x2545f491u;
    for (qsizetype i = start; i < start + length && i < bytes.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        bytes[i] = static_cast<char>(state >> 24);
    }
    return writeAll(to, bytes);
}

void assign(MediaSamples &m, const QString &path)
{
    const QDir dir(path);
    const auto at = [&](const char *name) { return dir.filePath(QString::fromLatin1(name)); };
    m.folder = dir.path();
    m.videoWithAudio = at("take.mov");
    m.videoOnly = at("silent.mp4");
    m.audioOnly = at("voice.m4a");
    m.broadcastWave = at("recorder.wav");
    m.dropFrame = at("dropframe.mov");
    m.tooShort = at("blink.mp4");
    m.truncatedMatroska = at("truncated.mkv");
    m.truncatedMp4 = at("truncated.mp4");
    m.heavilyDamaged = at("damaged.ts");
    m.lightlyDamaged = at("scratched.ts");
    m.textNamedMp4 = at("notes.mp4");
    m.sceneCuts = at("cuts.mp4");
    m.toneAndSilence = at("gaps.wav");
}

// Makes every file of `m` in `folder`.
bool make(const MediaSamples &m, const QString &folder, QString &error)
{
    const QDir dir(folder);
    const auto at = [&](const char *name) { return dir.filePath(QString::fromLatin1(name)); };
    const QString whole = at("whole.mkv");
    const QString wholeMp4 = at("whole.mp4");
    const QString cleanTs = at("clean.ts");
    const QString moving = QStringLiteral("testsrc2=size=320x240:rate=25:duration=");
    return ffmpeg({"-f", "lavfi", "-i", moving + "4", "-f", "lavfi", "-i",
                   "sine=frequency=440:sample_rate=48000:duration=4", "-c:v", "libx264", "-preset", "ultrafast",
                   "-pix_fmt", "yuv420p", "-c:a", "aac", "-ac", "1", "-timecode", "01:00:00:00", "-metadata",
                   "creation_time=2024-03-01T09:30:00Z", m.videoWithAudio},
                  error)
        && ffmpeg({"-f", "lavfi", "-i", moving + "3", "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p",
                   m.videoOnly},
                  error)
        && ffmpeg({"-f", "lavfi", "-i", "sine=frequency=330:sample_rate=44100:duration=3", "-ac", "2", "-c:a", "aac",
                   m.audioOnly},
                  error)
        && ffmpeg({"-f", "lavfi", "-i", "sine=frequency=220:sample_rate=48000:duration=2", "-c:a", "pcm_s16le",
                   "-write_bext", "1", "-metadata", "time_reference=172800000", m.broadcastWave},
                  error)
        && ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=160x120:rate=30000/1001:duration=2", "-c:v", "libx264",
                   "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-timecode", "01:00:00;00", m.dropFrame},
                  error)
        && ffmpeg({"-f", "lavfi", "-i", moving + "0.1", "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt",
                   "yuv420p", m.tooShort},
                  error)
        && ffmpeg({"-f", "lavfi", "-i", moving + "4", "-c:v", "libx264", "-preset", "ultrafast", "-g", "25",
                   "-pix_fmt", "yuv420p", whole},
                  error)
        && halve(whole, m.truncatedMatroska)
        && ffmpeg({"-f", "lavfi", "-i", moving + "4", "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt",
                   "yuv420p", wholeMp4},
                  error)
        && halve(wholeMp4, m.truncatedMp4)
        && ffmpeg({"-f", "lavfi", "-i", moving + "8", "-c:v", "mpeg2video", "-q:v", "4", "-g", "12", "-f", "mpegts",
                   cleanTs},
                  error)
        && damage(cleanTs, m.heavilyDamaged, 0.35, 0.30) && damage(cleanTs, m.lightlyDamaged, 0.50, 0.03)
        && writeAll(m.textNamedMp4, "These are my notes for the shoot, not a movie.\n")
        && ffmpeg({"-f", "lavfi", "-i", "color=c=red:size=160x120:rate=25:duration=0.4",
                   "-f", "lavfi", "-i", "color=c=blue:size=160x120:rate=25:duration=1.6",
                   "-f", "lavfi", "-i", "color=c=yellow:size=160x120:rate=25:duration=2",
                   "-f", "lavfi", "-i", "color=c=green:size=160x120:rate=25:duration=2",
                   "-f", "lavfi", "-i", "color=c=white:size=160x120:rate=25:duration=2",
                   "-filter_complex", "[0][1][2][3][4]concat=n=5:v=1[v]", "-map", "[v]",
                   "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", m.sceneCuts},
                  error)
        && ffmpeg({"-f", "lavfi", "-i",
                   "aevalsrc=if(lt(t\\,1)+between(t\\,2.5\\,4)\\,0.5*sin(2*PI*440*t)\\,0):s=48000:d=5",
                   "-c:a", "pcm_s16le", m.toneAndSilence},
                  error);
}

} // namespace

const MediaSamples &MediaSamples::get()
{
    return sharedSamples<MediaSamples>(QStringLiteral("velum-test-media-v1"), "the test media", assign, make);
}

} // namespace velum::test
