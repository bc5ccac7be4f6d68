#pragma once

// Moving whole clips along the project timeline. Nothing about the cut
// changes: a word keeps its clip times, its reason and its identity, and only
// its place on the timeline moves.

#include "review/Transcript.h"

#include <QHash>
#include <QString>
#include <QUuid>

#include <optional>
#include <vector>

namespace velum::ClipReorder {

struct Result {
    Transcript transcript;
    ReviewMedia media;
    QHash<QString, double> shifts; // seconds each clip moved by, by clipId

    friend bool operator==(const Result &, const Result &) = default;
};

// The clips in the order they appear, by the first word of each paragraph.
std::vector<QString> order(const Transcript &transcript);

// The source of each clip, by the first word of each paragraph.
QHash<QString, QUuid> sourceIDs(const Transcript &transcript);

// A requested order made to fit what exists: known clips in the requested
// order, once each, then the clips it left out in their current order. A
// stale stored order can neither lose nor invent a clip.
std::vector<QString> normalized(const std::vector<QString> &requested, const std::vector<QString> &current);

// The transcript and media with the clips laid end to end in the requested
// order; no value when that is the order they already have.
std::optional<Result> apply(const std::vector<QString> &requested, const Transcript &transcript,
                            const ReviewMedia &media);

} // namespace velum::ClipReorder
