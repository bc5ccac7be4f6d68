#pragma once

// The review model: one transcript over all clips on the project timeline.
// Everything that shows or exports the cut reads it, and every change goes
// through its mutators so that its derived fields stay true.
//
// Three clocks: clip time (`localStart`, `rawStart`) is seconds inside one
// source file; timeline time (`start`, `end`) lays all clips end to end at
// their full media length, cuts included; kept time is the timeline with the
// cuts taken out, reached only through `KeptRanges`.

#include "model/Project.h"

#include <QHash>
#include <QSet>
#include <QUuid>

#include <optional>
#include <vector>

namespace velum {

struct TranscriptWord {
    QUuid id;
    QString text;
    double start = 0;
    double end = 0;
    double localStart = 0;
    double localEnd = 0;
    double rawStart = 0;
    double rawEnd = 0;
    QUuid sourceID;
    QString clipId;
    int clipIndex = 0; // position in the clip's cut list; -1 for a wordless cut's token
    std::optional<int> wordIndex;
    std::optional<CutReason> cutReason;
    bool isPauseToken = false;
    bool isKeptTic = false;
    bool isHiddenTrim = false;
    bool isUserCut = false;

    friend bool operator==(const TranscriptWord &, const TranscriptWord &) = default;
};

struct TranscriptParagraph {
    QUuid id;
    QUuid sourceID;
    std::vector<TranscriptWord> words;

    friend bool operator==(const TranscriptParagraph &, const TranscriptParagraph &) = default;
};

// A maximal run of adjacent words of one source with the same reason.
struct TranscriptSegment {
    double start = 0;
    double end = 0;
    double localStart = 0;
    double localEnd = 0;
    QUuid sourceID;
    std::optional<CutReason> cutReason;
    bool isHiddenTrim = false;
    bool wordBacked = false;

    friend bool operator==(const TranscriptSegment &, const TranscriptSegment &) = default;
};

struct WordBounds {
    double start = 0;
    double end = 0;
    double localStart = 0;
    double localEnd = 0;

    friend bool operator==(const WordBounds &, const WordBounds &) = default;
};

// The only bridge between timeline time and kept time. Each span plays the
// timeline stretch [timelineStart, timelineEnd] from kept time keptStart on.
struct KeptRanges {
    struct Span {
        double timelineStart = 0;
        double timelineEnd = 0;
        double keptStart = 0;
        friend bool operator==(const Span &, const Span &) = default;
    };

    std::vector<Span> spans;

    friend bool operator==(const KeptRanges &, const KeptRanges &) = default;

    // Merges kept segments whose removed gap is at most `tolerance`, unless an
    // off-script or manual cut lies in the gap.
    static KeptRanges fromSegments(const std::vector<TranscriptSegment> &segments, double tolerance);

    // A time inside a cut snaps forward to where playback resumes.
    double keptTime(double timeline) const;
    // The end of a span belongs to the next span: the two maps are not
    // mirror images at span edges.
    double timelineTime(double kept) const;
};

// Which file plays which stretch of the timeline.
struct ReviewMedia {
    struct Clip {
        QUuid sourceID;
        QString clipId;
        QUrl url;
        double durationS = 0;
        double timelineStartS = 0;
        std::optional<double> externalOffsetS;
        friend bool operator==(const Clip &, const Clip &) = default;
    };

    std::vector<Clip> clips;
    std::optional<QUrl> externalURL;
    std::optional<QUuid> externalSourceID;

    friend bool operator==(const ReviewMedia &, const ReviewMedia &) = default;

    // The timeline start of each clip, by clipId.
    QHash<QString, double> clipStarts() const;
};

class Transcript {
public:
    struct Location {
        int paragraph = 0;
        int word = 0;  // index in that paragraph
        int order = 0; // index in `words`
        friend bool operator==(const Location &, const Location &) = default;
    };

    static constexpr double keptRangesTolerance = 0.12;

    Transcript() = default;
    Transcript(std::vector<SourceFile> sources, std::vector<TranscriptParagraph> paragraphs);
    static Transcript empty() { return Transcript(); }

    const std::vector<SourceFile> &sources() const { return m_sources; }
    const std::vector<TranscriptParagraph> &paragraphs() const { return m_paragraphs; }
    const std::vector<TranscriptWord> &words() const { return m_words; }
    const std::vector<TranscriptSegment> &segments() const { return m_segments; }
    double duration() const { return m_duration; }
    int cutCount() const { return m_cutCount; }
    double keptDuration() const { return m_keptDuration; }
    const KeptRanges &keptRanges() const { return m_keptRanges; }
    // The paragraphs to show with cuts visible and hidden, as indices into
    // `paragraphs()`.
    const std::vector<int> &paragraphsShowingCuts() const { return m_showingCuts; }
    const std::vector<int> &paragraphsHidingCuts() const { return m_hidingCuts; }
    int revision() const { return m_revision; }
    const QHash<QUuid, Location> &locations() const { return m_locations; }
    const QHash<QUuid, SourceFile::Color> &colors() const { return m_colors; }

    // Sets the reason of the given words; rebuilds only if a word changed.
    // Returns whether anything changed.
    bool setCutReason(std::optional<CutReason> reason, const QSet<QUuid> &ids);
    // Moves one word's four times; an unknown id or equal bounds change
    // nothing. Returns whether anything changed.
    bool setBounds(const WordBounds &bounds, const QUuid &id);
    // Replaces a clip's words, keeping the paragraph structure.
    void setWords(const std::vector<TranscriptWord> &words, const QString &clipId);

    // Of the listed paragraphs (indices into `paragraphs()`, in timeline
    // order, such as one of the two display lists), the one whose first
    // start <= seconds <= last end. Binary search on the first start; an
    // empty paragraph covers only times up to 0.
    std::optional<QUuid> paragraph(const std::vector<int> &in, double covering) const;
    std::optional<Location> location(const QUuid &wordID) const;
    const TranscriptWord *word(const QUuid &id) const;
    const SourceFile *source(const QUuid &id) const;
    std::optional<SourceFile::Color> color(const QUuid &sourceID) const;

    friend bool operator==(const Transcript &, const Transcript &) = default;

private:
    void rebuild();

    std::vector<SourceFile> m_sources;
    std::vector<TranscriptParagraph> m_paragraphs;
    std::vector<TranscriptWord> m_words;
    std::vector<TranscriptSegment> m_segments;
    double m_duration = 0;
    int m_cutCount = 0;
    double m_keptDuration = 0;
    KeptRanges m_keptRanges;
    std::vector<int> m_showingCuts;
    std::vector<int> m_hidingCuts;
    int m_revision = 0;
    QHash<QUuid, Location> m_locations;
    QHash<QUuid, SourceFile::Color> m_colors;
};

} // namespace velum
