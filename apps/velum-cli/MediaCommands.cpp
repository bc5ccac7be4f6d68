// velum-cli probe FILE
// velum-cli validate FILE --role a_roll|external_audio|b_roll
// velum-cli passes FILE
//
// What Velum reads from a media file, as JSON on standard output with the
// records' field names as keys: the probe's facts, the verdict a file gets
// when it is added to a project, and the measurements of the decode passes
// as the measurements export runs them on a clip.

#include "Command.h"

#include "tools/FFmpegRunner.h"
#include "tools/MediaValidator.h"
#include "tools/WaitForTask.h"

#include <QCoroTask>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <cstdio>
#include <exception>
#include <optional>
#include <utility>
#include <variant>

namespace velum::cli {
namespace {

// The measurement export's settings for a clip.
constexpr double cutThreshold = 3.5;
constexpr double cutMinSeparationS = 0.25;
constexpr double silenceNoiseDB = -35;
constexpr double silenceMinDurationS = 0.2;

template <class T>
QJsonValue encoded(const T &value)
{
    return json::encode(value, json::KeyStyle::fieldNames);
}

void print(const QJsonValue &value)
{
    const QByteArray text = json::serialize(value);
    std::fwrite(text.constData(), 1, static_cast<std::size_t>(text.size()), stdout);
    if (!text.endsWith('\n'))
        std::fputc('\n', stdout);
    std::fflush(stdout);
}

// The one FILE argument, which must exist, as a URL; otherwise the status to
// exit with (a usage error, or a failure for a file that is not there).
std::variant<QUrl, int> existingFileArgument(const QStringList &arguments, const char *usage)
{
    if (arguments.size() != 1 || arguments.first().startsWith(QLatin1Char('-')))
        return usageError(QStringLiteral("usage: velum-cli %1").arg(QLatin1String(usage)));
    const QFileInfo info(arguments.first());
    if (!info.exists()) {
        std::fprintf(stderr, "velum-cli: no such file: %s\n", qUtf8Printable(arguments.first()));
        return exitFailure;
    }
    return QUrl::fromLocalFile(info.absoluteFilePath());
}

int runProbe(const QStringList &arguments)
{
    const auto argument = existingFileArgument(arguments, "probe FILE");
    if (const int *status = std::get_if<int>(&argument))
        return *status;
    const QUrl url = std::get<QUrl>(argument);
    try {
        const auto probe = waitForTask(FFmpegRunner::probe(url));
        print(encoded(probe));
    } catch (const std::exception &e) {
        return toolFailure(e);
    }
    return exitOk;
}

int runValidate(const QStringList &arguments)
{
    static constexpr const char *usage = "validate FILE --role a_roll|external_audio|b_roll";
    QString path;
    std::optional<ProjectFileRole> role;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &a = arguments[i];
        if (a == QLatin1String("--role")) {
            if (i + 1 >= arguments.size())
                return usageError(QStringLiteral("--role needs one of a_roll, external_audio, b_roll"));
            role = json::fromText<ProjectFileRole>(arguments[++i]);
            if (!role)
                return usageError(QStringLiteral("unknown role \"%1\": use a_roll, external_audio or b_roll")
                                      .arg(arguments[i]));
        } else if (a.startsWith(QLatin1Char('-'))) {
            return usageError(QStringLiteral("unknown option \"%1\"").arg(a));
        } else if (path.isEmpty()) {
            path = a;
        } else {
            return usageError(QStringLiteral("unexpected argument \"%1\"").arg(a));
        }
    }
    if (path.isEmpty() || !role)
        return usageError(QStringLiteral("usage: velum-cli %1").arg(QLatin1String(usage)));

    // A file that is not there gets its verdict like any unreadable file.
    const QUrl url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
    try {
        const auto outcome = waitForTask(MediaValidator::validate(url, *role));
        print(encoded(outcome));
    } catch (const std::exception &e) {
        return toolFailure(e);
    }
    return exitOk;
}

QCoro::Task<QJsonObject> measure(QUrl url)
{
    auto probing = FFmpegRunner::probe(url);
    const FFmpegRunner::Probe probe = co_await std::move(probing);
    QJsonObject result{{"probe", encoded(probe)}};

    if (probe.videoCodec) {
        auto cutting = FFmpegRunner::detectCutsWithIntegrity(url, cutThreshold, cutMinSeparationS, probe.durationS,
                                                             probe.expectedVideoFrames());
        const auto cuts = co_await std::move(cutting);
        QJsonObject integrity = encoded(cuts.integrity).toObject();
        integrity.insert("verdict", json::text(cuts.integrity.verdict()));
        integrity.insert("message", cuts.integrity.message());
        result.insert("cuts", QJsonObject{{"threshold", cutThreshold},
                                          {"minSeparationS", cutMinSeparationS},
                                          {"events", encoded(cuts.cuts)}});
        result.insert("integrity", integrity);
    }

    if (probe.audioCodec) {
        auto listening = FFmpegRunner::detectSilences(url, silenceNoiseDB, silenceMinDurationS);
        const auto silences = co_await std::move(listening);
        result.insert("silences", QJsonObject{{"noiseDb", silenceNoiseDB},
                                              {"minDurationS", silenceMinDurationS},
                                              {"intervals", encoded(silences)}});
    }

    if (probe.videoCodec && probe.fps > 0) {
        auto watching = FFmpegRunner::motionEnvelope(url);
        const auto motion = co_await std::move(watching);
        QJsonArray data;
        for (const float value : motion)
            data.append(static_cast<double>(value));
        QJsonObject block{{"fps", probe.fps}, {"frames", static_cast<qint64>(motion.size())}, {"data", data}};
        result.insert("motion", block);
    }
    co_return result;
}

int runPasses(const QStringList &arguments)
{
    const auto argument = existingFileArgument(arguments, "passes FILE");
    if (const int *status = std::get_if<int>(&argument))
        return *status;
    const QUrl url = std::get<QUrl>(argument);
    try {
        print(waitForTask(measure(url)));
    } catch (const std::exception &e) {
        return toolFailure(e);
    }
    return exitOk;
}

const CommandRegistration probeRegistration{
    Command{"probe", "FILE", "print what ffprobe tells of a media file (duration, rate, size, codecs, timecode) as JSON",
            runProbe}};

const CommandRegistration validateRegistration{
    Command{"validate", "FILE --role a_roll|external_audio|b_roll",
            "print the state, note and media a file gets when it is added to a project in that role, as JSON",
            runValidate}};

const CommandRegistration passesRegistration{
    Command{"passes", "FILE",
            "run the decode passes of a clip's measurements (scene cuts with integrity, silences, motion) and print "
            "them as JSON",
            runPasses}};

} // namespace
} // namespace velum::cli
