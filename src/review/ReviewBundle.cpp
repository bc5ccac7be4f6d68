#include "review/ReviewBundle.h"

#include "model/SentenceBoundary.h"
#include "review/Cutlist.h"
#include "stages/StageDocuments.h"

#include <QDir>

#include <algorithm>
#include <cstdio>
#include <map>

namespace velum::ProcessPipeline {

namespace {

bool isCut(const TranscriptWord &word) { return word.cutReason.has_value(); }

std::vector<int> cutRunLengths(const std::vector<TranscriptWord> &words)
{
    std::vector<int> lengths(words.size(), 0);
    std::size_t i = 0;
    while (i < words.size()) {
        std::size_t j = i;
        while (j + 1 < words.size() && isCut(words[j + 1]) == isCut(words[i]))
            ++j;
        for (std::size_t k = i; k <= j; ++k)
            lengths[k] = static_cast<int>(j - i + 1);
        i = j + 1;
    }
    return lengths;
}

std::vector<QString> timelineOrder(const ReviewDocuments &d)
{
    if (d.order && !d.order->timelineOrder.empty())
        return d.order->timelineOrder;
    if (d.sync && !d.sync->clips.empty()) {
        const QStringList shot = d.sync->shootingOrder();
        return {shot.begin(), shot.end()};
    }
    std::vector<QString> order;
    for (const auto &clip : d.transcript.clips)
        order.push_back(clip.clipId);
    return order;
}

const C1Transcript::Clip *transcriptClip(const C1Transcript &transcript, const QString &clipId)
{
    for (const auto &clip : transcript.clips) {
        if (clip.clipId == clipId)
            return &clip;
    }
    return nullptr;
}

} // namespace

std::vector<std::vector<TranscriptWord>> paragraphSlices(const std::vector<TranscriptWord> &words)
{
    std::vector<std::vector<TranscriptWord>> slices;
    const auto runs = cutRunLengths(words);
    std::vector<TranscriptWord> current;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto &word = words[i];
        current.push_back(word);
        const std::size_t n = current.size();
        bool close = false;
        if (i + 1 >= words.size()) {
            close = true;
        } else {
            const auto &next = words[i + 1];
            const bool flips = isCut(word) != isCut(next);
            if (flips && (runs[i] >= 25 || runs[i + 1] >= 25) && n > 7) {
                close = true;
            } else if (n >= 25) {
                const bool endsSentence = !word.isPauseToken && SentenceBoundary::endsSentence(word.text);
                const bool sentenceBreak = endsSentence || next.start - word.end >= 0.45;
                if (sentenceBreak && (n > 89 || endsSentence))
                    close = true;
            }
            if (!close && n >= 130)
                close = true;
        }
        if (close) {
            slices.push_back(std::move(current));
            current.clear();
        }
    }
    if (!current.empty())
        slices.push_back(std::move(current));
    return slices;
}

std::optional<ReviewDocuments> ReviewDocuments::load(const QString &projectFolder)
{
    auto probe = StageDocuments::loadC0Probe(projectFolder);
    if (!probe)
        return std::nullopt;
    auto transcript = StageDocuments::loadC1Transcript(projectFolder);
    if (!transcript)
        return std::nullopt;
    ReviewDocuments d{.probe = std::move(*probe), .transcript = std::move(*transcript)};
    d.sync = StageDocuments::loadC05Sync(projectFolder);
    d.order = StageDocuments::loadClipOrder(projectFolder);
    d.takes = StageDocuments::loadC2Takes(projectFolder);
    d.cuts = StageDocuments::loadC3Cuts(projectFolder);
    d.edits = loadReviewEdits(projectFolder);
    d.seams = StageDocuments::loadC3Seams(projectFolder);
    d.plan = StageDocuments::loadC1Plan(projectFolder);
    return d;
}

std::optional<ReviewBundle> buildReviewBundle(const ReviewDocuments &d)
{
    ReviewBundle bundle;
    const ReviewEdits storedEdits = d.edits.value_or(ReviewEdits{});
    bundle.edits = storedEdits;
    bundle.edits.boundaryOverrides.clear();

    const double seamS = d.cuts ? d.cuts->params.seamTightnessMs / 1000 : Cutlist::defaultSeamS;

    if (d.plan) {
        QHash<QString, int> counts;
        for (const auto &clip : d.transcript.clips)
            counts.insert(clip.clipId, static_cast<int>(clip.words.size()));
        bundle.sections = PlanSections::resolve(*d.plan, counts, bundle.planNotes);
    }

    std::vector<SourceFile> sources;
    std::vector<TranscriptParagraph> paragraphs;
    std::map<QString, qint64> languageTally;
    double t = 0;

    for (const QString &clipId : timelineOrder(d)) {
        const C1Transcript::Clip *clip = transcriptClip(d.transcript, clipId);
        if (!clip || clip->words.empty())
            continue;
        if (clip->language && !clip->language->isEmpty())
            languageTally[*clip->language] += static_cast<qint64>(clip->words.size());

        const C0Probe::Clip *probeClip = d.probe.clip(clipId);
        std::optional<QUrl> url;
        if (probeClip)
            url = QUrl::fromLocalFile(probeClip->path);

        const SourceFile source{QUuid::createUuid(), clip->filename, static_cast<int>(sources.size()), url,
                                SourceKind::video};
        sources.push_back(source);

        std::vector<IndexRange> retakes;
        if (d.takes) {
            for (const auto &cut : d.takes->cutsFor(clipId))
                retakes.push_back({cut.wordStart, cut.wordEnd});
        }
        const auto entries = Cutlist::entries(*clip, retakes, {}, d.cuts ? d.cuts->clip(clipId) : nullptr, seamS,
                                              d.seams ? d.seams->clip(clipId) : nullptr);

        std::vector<TranscriptWord> words;
        words.reserve(entries.size());
        for (std::size_t p = 0; p < entries.size(); ++p) {
            const auto &e = entries[p];
            TranscriptWord word{
                .id = QUuid::createUuid(),
                .text = e.text,
                .start = t + e.start,
                .end = t + e.end,
                .localStart = e.start,
                .localEnd = e.end,
                .rawStart = e.rawStart,
                .rawEnd = e.rawEnd,
                .sourceID = source.id,
                .clipId = clipId,
                .clipIndex = static_cast<int>(p),
                .wordIndex = e.wordIndex,
                .cutReason = e.reason,
                .isKeptTic = e.isKeptTic,
                .isHiddenTrim = e.isHiddenTrim,
            };
            if (e.isPause)
                word.isPauseToken = !e.isHiddenTrim;
            else if (!e.wordIndex && Cutlist::Entry::isSilenceGlyph(e.text))
                word.isPauseToken = !e.isHiddenTrim;
            words.push_back(std::move(word));
        }

        if (!storedEdits.boundaryOverrides.empty()) {
            auto application = ReviewEdits::applyBoundaryOverrides(storedEdits.boundaryOverrides, words, clipId, t);
            bundle.edits.boundaryOverrides.insert(bundle.edits.boundaryOverrides.end(), application.applied.begin(),
                                                  application.applied.end());
            for (auto it = application.pristine.cbegin(); it != application.pristine.cend(); ++it)
                bundle.pristineBounds.insert(it.key(), it.value());
            bundle.editNotes.insert(bundle.editNotes.end(), application.notes.begin(), application.notes.end());
        }

        if (storedEdits.wordlessCuts) {
            std::vector<WordlessCut> clipCuts;
            for (const auto &cut : *storedEdits.wordlessCuts) {
                if (cut.clip == clipId)
                    clipCuts.push_back(cut);
            }
            if (!clipCuts.empty()) {
                auto insertions = WordlessCuts::restore(std::move(clipCuts), words, t, bundle.editNotes);
                bundle.wordlessTokens.insert(bundle.wordlessTokens.end(), insertions.begin(), insertions.end());
            }
        }

        for (auto &slice : paragraphSlices(words))
            paragraphs.push_back(TranscriptParagraph{QUuid::createUuid(), source.id, std::move(slice)});

        double length = 0;
        if (probeClip && probeClip->media)
            length = probeClip->media->durationS;
        else
            length = clip->words.back().end;

        if (url) {
            ReviewMedia::Clip mediaClip{source.id, clipId, *url, length, t, std::nullopt};
            if (d.sync) {
                if (const auto *syncClip = d.sync->clip(clipId); syncClip && syncClip->isSynced)
                    mediaClip.externalOffsetS = syncClip->offsetS;
            }
            bundle.media.clips.push_back(mediaClip);
        }
        t += length;
    }

    if (paragraphs.empty())
        return std::nullopt;

    if (d.sync && d.sync->externalClipId) {
        const C0Probe::Clip *external = d.probe.clip(*d.sync->externalClipId);
        const bool anySynced = std::any_of(bundle.media.clips.begin(), bundle.media.clips.end(),
                                           [](const ReviewMedia::Clip &c) { return c.externalOffsetS.has_value(); });
        if (external && anySynced) {
            const SourceFile source{QUuid::createUuid(), external->filename, static_cast<int>(sources.size()),
                                    QUrl::fromLocalFile(external->path), SourceKind::externalAudio};
            sources.push_back(source);
            bundle.media.externalURL = source.url;
            bundle.media.externalSourceID = source.id;
        }
    }

    if (!languageTally.empty()) {
        // Most words first; a tie goes to the language text that sorts first,
        // which the ordered map gives by walking in ascending order.
        auto best = languageTally.begin();
        for (auto it = languageTally.begin(); it != languageTally.end(); ++it) {
            if (it->second > best->second)
                best = it;
        }
        bundle.language = best->first;
    }

    bundle.transcript = Transcript(std::move(sources), std::move(paragraphs));
    return bundle;
}

std::optional<ReviewBundle> reviewBundle(const QString &projectFolder)
{
    const auto documents = ReviewDocuments::load(projectFolder);
    if (!documents)
        return std::nullopt;
    auto bundle = buildReviewBundle(*documents);
    if (!bundle)
        return std::nullopt;
    for (const auto &note : bundle->editNotes)
        std::fprintf(stdout, "%s\n", qUtf8Printable(note));
    for (const auto &note : bundle->planNotes)
        std::fprintf(stdout, "%s\n", qUtf8Printable(note));
    std::fflush(stdout);
    return bundle;
}

std::optional<ReviewBundle> reviewBundle(const ProjectWorkspace &workspace, const QUuid &projectID)
{
    return reviewBundle(workspace.folderPath(projectID));
}

} // namespace velum::ProcessPipeline
