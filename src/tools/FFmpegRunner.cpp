#include "tools/FFmpegRunner.h"

#include "model/FCPXMLTime.h"

#include <QByteArray>
#include <QDate>
#include <QHashFunctions>
#include <QTime>
#include <QTimeZone>

#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

namespace velum {

namespace {

// The Latin-1 bytes of a text, or none when it holds anything else: no number
// is written with other characters.
std::optional<std::string> asciiBytes(QStringView text)
{
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(text.size()));
    for (const QChar c : text) {
        if (c.unicode() > 0x7f)
            return std::nullopt;
        bytes.push_back(static_cast<char>(c.unicode()));
    }
    return bytes;
}

// from_chars does not take a leading "+"; the C library's readers do, so the
// tools may print one. A sign after the "+" is not a number.
std::string_view withoutPlus(std::string_view text)
{
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (text.empty() || text.front() == '+' || text.front() == '-')
            return {};
    }
    return text;
}

template <class T>
std::optional<T> parseWhole(QStringView text)
{
    const auto bytes = asciiBytes(text);
    if (!bytes)
        return std::nullopt;
    const std::string_view view = withoutPlus(*bytes);
    if (view.empty())
        return std::nullopt;
    T value{};
    const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), value);
    if (error != std::errc() || end != view.data() + view.size())
        return std::nullopt;
    return value;
}

bool isDigit(QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); }

// Reads `count` digits at `pos` and moves past them.
std::optional<int> digits(QStringView text, qsizetype &pos, int count)
{
    if (pos + count > text.size())
        return std::nullopt;
    int value = 0;
    for (int i = 0; i < count; ++i) {
        const QChar c = text[pos + i];
        if (!isDigit(c))
            return std::nullopt;
        value = value * 10 + (c.unicode() - '0');
    }
    pos += count;
    return value;
}

bool expect(QStringView text, qsizetype &pos, char c)
{
    if (pos >= text.size() || text[pos] != QLatin1Char(c))
        return false;
    ++pos;
    return true;
}

// An internet date-time: "2024-03-01T09:30:00Z" or "…+01:00", and with
// `fractional` a fraction of a second before the zone ("…00.123456Z"), kept
// to the millisecond.
class ISO8601Reader {
public:
    explicit ISO8601Reader(bool fractional) : m_fractional(fractional) {}

    std::optional<QDateTime> read(QStringView text) const
    {
        qsizetype pos = 0;
        const auto year = digits(text, pos, 4);
        if (!year || !expect(text, pos, '-'))
            return std::nullopt;
        const auto month = digits(text, pos, 2);
        if (!month || !expect(text, pos, '-'))
            return std::nullopt;
        const auto day = digits(text, pos, 2);
        if (!day || !expect(text, pos, 'T'))
            return std::nullopt;
        const auto hour = digits(text, pos, 2);
        if (!hour || !expect(text, pos, ':'))
            return std::nullopt;
        const auto minute = digits(text, pos, 2);
        if (!minute || !expect(text, pos, ':'))
            return std::nullopt;
        const auto second = digits(text, pos, 2);
        if (!second)
            return std::nullopt;

        int millis = 0;
        if (m_fractional) {
            if (!expect(text, pos, '.'))
                return std::nullopt;
            int place = 100;
            qsizetype count = 0;
            while (pos < text.size() && isDigit(text[pos])) {
                millis += (text[pos].unicode() - '0') * place;
                place /= 10;
                ++pos;
                ++count;
            }
            if (count == 0)
                return std::nullopt;
        }

        int offsetS = 0;
        if (expect(text, pos, 'Z')) {
            // UTC
        } else if (pos < text.size() && (text[pos] == QLatin1Char('+') || text[pos] == QLatin1Char('-'))) {
            const int sign = text[pos] == QLatin1Char('-') ? -1 : 1;
            ++pos;
            const auto zoneHours = digits(text, pos, 2);
            if (!zoneHours)
                return std::nullopt;
            expect(text, pos, ':');
            const auto zoneMinutes = digits(text, pos, 2);
            if (!zoneMinutes || *zoneHours > 23 || *zoneMinutes > 59)
                return std::nullopt;
            offsetS = sign * (*zoneHours * 3600 + *zoneMinutes * 60);
        } else {
            return std::nullopt;
        }
        if (pos != text.size())
            return std::nullopt;

        const QDate date(*year, *month, *day);
        const QTime time(*hour, *minute, *second, millis);
        if (!date.isValid() || !time.isValid())
            return std::nullopt;
        return QDateTime(date, time, QTimeZone::utc()).addSecs(-offsetS);
    }

private:
    bool m_fractional;
};

// value · factor, or none when it does not fit.
std::optional<qint64> product(qint64 value, qint64 factor)
{
    qint64 result = 0;
    if (__builtin_mul_overflow(value, factor, &result))
        return std::nullopt;
    return result;
}

std::optional<qint64> sum(qint64 a, qint64 b)
{
    qint64 result = 0;
    if (__builtin_add_overflow(a, b, &result))
        return std::nullopt;
    return result;
}

// The nearest integer of a finite value that fits in 64 bits.
std::optional<qint64> rounded(double value)
{
    if (!std::isfinite(value))
        return std::nullopt;
    const double r = std::round(value);
    if (r < -9.2e18 || r > 9.2e18)
        return std::nullopt;
    return static_cast<qint64>(r);
}

const QString *tag(const std::optional<std::map<QString, QString>> &tags, const char *key)
{
    if (!tags)
        return nullptr;
    const auto found = tags->find(QString::fromLatin1(key));
    return found == tags->end() ? nullptr : &found->second;
}

} // namespace

std::optional<MediaTimecode> parseMediaTimecode(QStringView timecode, double fps)
{
    if (!(fps > 0))
        return std::nullopt;
    const bool dropFrame = timecode.contains(QLatin1Char(';'));

    std::vector<qint64> fields;
    qsizetype start = 0;
    for (qsizetype i = 0; i <= timecode.size(); ++i) {
        if (i == timecode.size() || timecode[i] == QLatin1Char(':') || timecode[i] == QLatin1Char(';')) {
            if (i > start) {
                const auto value = FFmpegRunner::integer(timecode.mid(start, i - start));
                if (!value)
                    return std::nullopt;
                fields.push_back(*value);
            }
            start = i + 1;
        }
    }
    if (fields.size() != 4)
        return std::nullopt;
    const qint64 hours = fields[0], minutes = fields[1], seconds = fields[2], frames = fields[3];
    if (hours < 0 || minutes < 0 || minutes > 59 || seconds < 0 || seconds > 59 || frames < 0)
        return std::nullopt;

    const auto nominal = rounded(fps);
    if (!nominal || *nominal < 1 || frames >= *nominal)
        return std::nullopt;

    const auto hourMinutes = product(hours, 60);
    const auto totalMinutes = hourMinutes ? sum(*hourMinutes, minutes) : std::nullopt;
    const auto totalSeconds = totalMinutes ? product(*totalMinutes, 60) : std::nullopt;
    const auto withSeconds = totalSeconds ? sum(*totalSeconds, seconds) : std::nullopt;
    const auto scaled = withSeconds ? product(*withSeconds, *nominal) : std::nullopt;
    auto count = scaled ? sum(*scaled, frames) : std::nullopt;
    if (!count)
        return std::nullopt;

    if (dropFrame) {
        if (*nominal % 30 != 0)
            return std::nullopt;
        // Two frame numbers a minute at 30 (four at 60) are skipped, except
        // in every tenth minute.
        const auto dropped = product(*nominal / 15, *totalMinutes - *totalMinutes / 10);
        if (!dropped)
            return std::nullopt;
        *count -= *dropped;
        if (*count < 0)
            return std::nullopt;
    }

    const FCPXMLFrameRate rate(fps);
    const auto value = product(*count, rate.frameNum);
    if (!value)
        return std::nullopt;
    MediaTimecode result;
    result.value = *value;
    result.timescale = rate.frameDen;
    result.source = MediaTimecode::Source::timecodeTrack;
    result.text = timecode.toString();
    return result;
}

FFProbeOutput FFProbeOutput::decode(const QByteArray &bytes)
{
    return json::decode<FFProbeOutput>(json::parse(bytes), json::KeyStyle::fieldNames);
}

namespace FFmpegRunner {

std::optional<qint64> integer(QStringView text) { return parseWhole<qint64>(text); }

std::optional<double> number(QStringView text) { return parseWhole<double>(text); }

std::optional<float> floatNumber(QStringView text) { return parseWhole<float>(text); }

double frameRate(const std::optional<QString> &text)
{
    if (!text)
        return 0;
    std::vector<double> numbers;
    for (const auto piece : QStringView(*text).split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (const auto value = number(piece))
            numbers.push_back(*value);
    }
    if (numbers.size() == 2 && numbers[1] != 0)
        return numbers[0] / numbers[1];
    return number(*text).value_or(0);
}

std::optional<QDateTime> date(const std::optional<QString> &text)
{
    // Built once, shared by every probe.
    static const ISO8601Reader whole(false);
    static const ISO8601Reader fractional(true);
    if (!text)
        return std::nullopt;
    if (auto moment = whole.read(*text))
        return moment;
    return fractional.read(*text);
}

std::optional<MediaTimecode> startTimecode(const std::map<QString, QString> &tags,
                                           const std::vector<FFProbeOutput::Stream> &streams,
                                           std::optional<int> audioRate, double fps)
{
    if (const auto found = tags.find(QStringLiteral("time_reference")); found != tags.end()) {
        const auto reference = integer(found->second.trimmed());
        if (reference && *reference >= 1 && audioRate && *audioRate > 0) {
            MediaTimecode timecode;
            timecode.value = *reference;
            timecode.timescale = *audioRate;
            timecode.source = MediaTimecode::Source::bwfTimeReference;
            timecode.text = MediaTimecode::label(static_cast<double>(*reference) / *audioRate);
            return timecode;
        }
    }

    std::vector<const QString *> candidates;
    if (const auto found = tags.find(QStringLiteral("timecode")); found != tags.end())
        candidates.push_back(&found->second);
    for (const auto &stream : streams)
        candidates.push_back(tag(stream.tags, "timecode"));
    for (const QString *candidate : candidates) {
        if (!candidate || candidate->isEmpty())
            continue;
        // An all-zero timecode is what a camera writes when it keeps none.
        if (auto timecode = parseMediaTimecode(*candidate, fps); timecode && timecode->value != 0)
            return timecode;
    }
    return std::nullopt;
}

Probe probeFrom(const FFProbeOutput &output)
{
    const FFProbeOutput::Stream *video = nullptr;
    const FFProbeOutput::Stream *audio = nullptr;
    for (const auto &stream : output.streams) {
        if (!stream.codec_type)
            continue;
        if (!video && *stream.codec_type == QLatin1String("video"))
            video = &stream;
        else if (!audio && *stream.codec_type == QLatin1String("audio"))
            audio = &stream;
    }

    Probe probe;
    if (video)
        probe.fps = frameRate(video->avg_frame_rate ? video->avg_frame_rate : video->r_frame_rate);

    std::optional<double> duration;
    if (output.format.duration)
        duration = number(*output.format.duration);
    if (!duration && video && video->duration)
        duration = number(*video->duration);
    probe.durationS = duration.value_or(0);

    if (video) {
        probe.width = video->width.value_or(0);
        probe.height = video->height.value_or(0);
        probe.videoCodec = video->codec_name;
        if (video->nb_frames)
            probe.nbFrames = integer(*video->nb_frames);
    }
    if (audio) {
        probe.audioCodec = audio->codec_name;
        if (audio->sample_rate && !audio->sample_rate->isEmpty()) {
            const auto rate = integer(*audio->sample_rate);
            if (rate && *rate >= std::numeric_limits<int>::min() && *rate <= std::numeric_limits<int>::max())
                probe.sampleRate = static_cast<int>(*rate);
        }
        probe.channels = audio->channels;
    }
    if (output.format.size)
        probe.sizeBytes = integer(*output.format.size).value_or(0);

    const QString *created = tag(output.format.tags, "creation_time");
    if (!created && video)
        created = tag(video->tags, "creation_time");
    probe.creationTime = date(created ? std::optional<QString>(*created) : std::nullopt);

    probe.startTimecode = startTimecode(output.format.tags.value_or(std::map<QString, QString>{}), output.streams,
                                        probe.sampleRate, probe.fps);
    return probe;
}

std::optional<qint64> Probe::expectedVideoFrames() const
{
    if (nbFrames && *nbFrames > 0)
        return nbFrames;
    if (fps > 0 && durationS > 0)
        return rounded(durationS * fps);
    return std::nullopt;
}

size_t qHash(const Probe &probe, size_t seed)
{
    QtPrivate::QHashCombine combine;
    const auto optional = [&](const auto &value) {
        seed = combine(seed, value.has_value());
        if (value)
            seed = combine(seed, *value);
    };
    seed = combine(seed, probe.durationS);
    seed = combine(seed, probe.fps);
    seed = combine(seed, probe.width);
    seed = combine(seed, probe.height);
    optional(probe.videoCodec);
    optional(probe.audioCodec);
    optional(probe.sampleRate);
    optional(probe.channels);
    seed = combine(seed, probe.sizeBytes);
    optional(probe.creationTime);
    optional(probe.nbFrames);
    seed = combine(seed, probe.startTimecode.has_value());
    if (const auto &timecode = probe.startTimecode) {
        seed = combine(seed, timecode->value);
        seed = combine(seed, timecode->timescale);
        seed = combine(seed, static_cast<int>(timecode->source));
        optional(timecode->text);
    }
    return seed;
}

qint64 errorLineCount(QStringView text)
{
    qint64 count = 0;
    for (const auto line : text.split(QLatin1Char('\n'))) {
        if (!line.trimmed().isEmpty())
            ++count;
    }
    return count;
}

std::optional<QUrl> ffprobePath(const ProcessRunner &runner)
{
    if (const auto tool = runner.resolve(QStringLiteral("ffprobe")))
        return tool->url;
    return std::nullopt;
}

QStringList probeArguments(const QString &path)
{
    return {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-print_format"), QStringLiteral("json"),
            QStringLiteral("-show_format"), QStringLiteral("-show_streams"), path};
}

QCoro::Task<Probe> probe(QUrl url, ProcessRunner runner, Cancellation cancellation)
{
    const auto tool = ffprobePath(runner);
    if (!tool)
        throw ProcessRunner::FailureError(ProcessRunner::ToolNotFound{QStringLiteral("ffprobe")});
    auto run = ProcessRunner::run(*tool, probeArguments(url.toLocalFile()), std::nullopt, cancellation);
    const ProcessRunner::Output output = co_await std::move(run);
    ProcessRunner::requireSuccess(QStringLiteral("ffprobe"), output.status, output.text);
    co_return probeFrom(FFProbeOutput::decode(output.text.toUtf8()));
}

} // namespace FFmpegRunner
} // namespace velum
