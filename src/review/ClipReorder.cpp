#include "review/ClipReorder.h"

#include <QSet>

#include <algorithm>

namespace velum::ClipReorder {

std::vector<QString> order(const Transcript &transcript)
{
    std::vector<QString> clips;
    QSet<QString> seen;
    for (const auto &paragraph : transcript.paragraphs()) {
        if (paragraph.words.empty())
            continue;
        const QString &clip = paragraph.words.front().clipId;
        if (clip.isEmpty() || seen.contains(clip))
            continue;
        seen.insert(clip);
        clips.push_back(clip);
    }
    return clips;
}

QHash<QString, QUuid> sourceIDs(const Transcript &transcript)
{
    QHash<QString, QUuid> sources;
    for (const auto &paragraph : transcript.paragraphs()) {
        if (!paragraph.words.empty())
            sources.insert(paragraph.words.front().clipId, paragraph.words.front().sourceID);
    }
    return sources;
}

std::vector<QString> normalized(const std::vector<QString> &requested, const std::vector<QString> &current)
{
    const QSet<QString> known(current.begin(), current.end());
    std::vector<QString> result;
    QSet<QString> taken;
    for (const auto &clip : requested) {
        if (known.contains(clip) && !taken.contains(clip)) {
            taken.insert(clip);
            result.push_back(clip);
        }
    }
    for (const auto &clip : current) {
        if (!taken.contains(clip)) {
            taken.insert(clip);
            result.push_back(clip);
        }
    }
    return result;
}

std::optional<Result> apply(const std::vector<QString> &requested, const Transcript &transcript,
                            const ReviewMedia &media)
{
    const auto current = order(transcript);
    const auto target = normalized(requested, current);
    if (target == current)
        return std::nullopt;

    // Paragraphs by the clip of their first word, in their order. A
    // paragraph without words belongs to no clip and is not carried over.
    QHash<QString, std::vector<const TranscriptParagraph *>> paragraphsOf;
    for (const auto &paragraph : transcript.paragraphs()) {
        if (!paragraph.words.empty())
            paragraphsOf[paragraph.words.front().clipId].push_back(&paragraph);
    }

    const auto mediaOf = [&](const QString &clip) -> const ReviewMedia::Clip * {
        const auto found = std::find_if(media.clips.begin(), media.clips.end(),
                                        [&](const ReviewMedia::Clip &c) { return c.clipId == clip; });
        return found == media.clips.end() ? nullptr : &*found;
    };

    // Where each clip began on the timeline.
    QHash<QString, double> oldBase;
    for (const auto &clip : current) {
        const auto &first = paragraphsOf.value(clip).front()->words.front();
        oldBase.insert(clip, first.start - first.localStart);
    }

    // How much timeline each clip takes: up to the next clip's start, and
    // for the last its media length or, without media, its last word's end.
    QHash<QString, double> length;
    for (std::size_t i = 0; i < current.size(); ++i) {
        const QString &clip = current[i];
        if (i + 1 < current.size()) {
            length.insert(clip, std::max(oldBase.value(current[i + 1]) - oldBase.value(clip), 0.0));
        } else if (const auto *clipMedia = mediaOf(clip)) {
            length.insert(clip, clipMedia->durationS);
        } else {
            double end = 0;
            bool any = false;
            for (const auto *paragraph : paragraphsOf.value(clip)) {
                for (const auto &word : paragraph->words) {
                    end = any ? std::max(end, word.localEnd) : word.localEnd;
                    any = true;
                }
            }
            length.insert(clip, end);
        }
    }

    Result result;
    QHash<QString, double> newBase;
    double base = 0;
    for (const auto &clip : target) {
        newBase.insert(clip, base);
        result.shifts.insert(clip, base - oldBase.value(clip));
        base += length.value(clip);
    }

    std::vector<TranscriptParagraph> paragraphs;
    for (const auto &clip : target) {
        const double shift = result.shifts.value(clip);
        for (const auto *paragraph : paragraphsOf.value(clip)) {
            TranscriptParagraph moved = *paragraph;
            for (auto &word : moved.words) {
                word.start += shift;
                word.end += shift;
            }
            paragraphs.push_back(std::move(moved));
        }
    }

    // Sources of the moved clips in their new order, then every other source
    // (the external audio among them) in its old order. A source keeps its
    // colour index, so a clip keeps its colour.
    const auto clipSources = sourceIDs(transcript);
    std::vector<SourceFile> sources;
    QSet<QUuid> placed;
    for (const auto &clip : target) {
        const QUuid id = clipSources.value(clip);
        if (placed.contains(id))
            continue;
        if (const SourceFile *source = transcript.source(id)) {
            sources.push_back(*source);
            placed.insert(id);
        }
    }
    for (const auto &source : transcript.sources()) {
        if (!placed.contains(source.id))
            sources.push_back(source);
    }

    result.media.externalURL = media.externalURL;
    result.media.externalSourceID = media.externalSourceID;
    for (const auto &clip : target) {
        if (const auto *clipMedia = mediaOf(clip)) {
            ReviewMedia::Clip moved = *clipMedia;
            moved.timelineStartS = newBase.value(clip);
            result.media.clips.push_back(std::move(moved));
        }
    }

    result.transcript = Transcript(std::move(sources), std::move(paragraphs));
    return result;
}

} // namespace velum::ClipReorder
