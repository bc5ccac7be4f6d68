#pragma once

// "c1_transcript.json": the words of each clip with their times. It is the
// spine of a job's documents: a word's index in its clip's `words` is the word
// index every other document of the same job uses.

#include "model/Json.h"
#include "stages/Extraction.h"

#include <QDateTime>
#include <QString>

#include <optional>
#include <vector>

namespace velum {

// A word as spoken, with its punctuation, in seconds of its clip.
struct TimedWord {
    QString text;
    double start = 0;
    double end = 0;
    std::optional<double> confidence;
    bool isFiller = false;
    std::optional<double> fillerConfidence;

    friend bool operator==(const TimedWord &, const TimedWord &) = default;
};

// A labelled non-speech sound ("laughter", "cough"), in seconds of its clip.
struct AudioEvent {
    QString label;
    double start = 0;
    double end = 0;

    friend bool operator==(const AudioEvent &, const AudioEvent &) = default;
};

struct C1Transcript {
    enum class AudioSource { external, camera, none };

    struct Clip {
        QString clipId;
        QString filename;
        std::vector<TimedWord> words;
        AudioSource audioSource = AudioSource::camera;
        std::optional<QString> language; // language code of the clip
        std::optional<QString> note;
        std::optional<std::vector<AudioEvent>> audioEvents;
        std::optional<QString> transcription; // the transcript as plain text

        friend bool operator==(const Clip &, const Clip &) = default;
    };

    int schemaVersion = 1;
    QString projectId;
    QDateTime createdAt;
    std::vector<Clip> clips;
    analysis::Extraction extraction;

    friend bool operator==(const C1Transcript &, const C1Transcript &) = default;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<C1Transcript::AudioSource> {
    static constexpr std::array values{
        std::pair{C1Transcript::AudioSource::external, "external"},
        std::pair{C1Transcript::AudioSource::camera, "camera"},
        std::pair{C1Transcript::AudioSource::none, "none"},
    };
};

template <>
struct Fields<TimedWord> {
    static constexpr auto list = std::tuple{
        field("text", &TimedWord::text),
        field("start", &TimedWord::start),
        field("end", &TimedWord::end),
        field("confidence", &TimedWord::confidence),
        field("isFiller", &TimedWord::isFiller),
        field("fillerConfidence", &TimedWord::fillerConfidence),
    };
};

template <>
struct Fields<AudioEvent> {
    static constexpr auto list = std::tuple{
        field("label", &AudioEvent::label),
        field("start", &AudioEvent::start),
        field("end", &AudioEvent::end),
    };
};

template <>
struct Fields<C1Transcript::Clip> {
    static constexpr auto list = std::tuple{
        field("clipId", &C1Transcript::Clip::clipId),
        field("filename", &C1Transcript::Clip::filename),
        field("words", &C1Transcript::Clip::words),
        field("audioSource", &C1Transcript::Clip::audioSource),
        field("language", &C1Transcript::Clip::language),
        field("note", &C1Transcript::Clip::note),
        field("audioEvents", &C1Transcript::Clip::audioEvents),
        field("transcription", &C1Transcript::Clip::transcription),
    };
};

template <>
struct Fields<C1Transcript> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &C1Transcript::schemaVersion),
        field("projectId", &C1Transcript::projectId),
        field("createdAt", &C1Transcript::createdAt),
        field("clips", &C1Transcript::clips),
        field("extraction", &C1Transcript::extraction),
    };
};

} // namespace velum::json
