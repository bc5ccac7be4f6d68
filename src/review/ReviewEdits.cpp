#include "review/ReviewEdits.h"

#include "model/ProjectWorkspace.h"
#include "review/Cutlist.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <map>

namespace velum {

size_t qHash(const ReviewEdits::Span::Key &key, size_t seed)
{
    return qHashMulti(seed, key.clip, key.wordIndex);
}

size_t qHash(const ReviewEdits::BoundaryOverride::Key &key, size_t seed)
{
    return qHashMulti(seed, key.clip, key.wordIndex, static_cast<int>(key.edge));
}

bool ReviewEdits::isEmpty() const
{
    return cuts.empty() && restores.empty() && boundaryOverrides.empty() && (!clipOrder || clipOrder->empty())
        && (!wordlessCuts || wordlessCuts->empty());
}

namespace {

// Stable order of reason groups: no reason first, then the reasons in their
// declared order.
int reasonRank(const std::optional<CutReason> &reason)
{
    return reason ? static_cast<int>(*reason) + 1 : 0;
}

using Groups = std::map<int, std::pair<std::optional<CutReason>, QSet<QUuid>>>;

Groups resolveSpans(const std::vector<ReviewEdits::Span> &spans,
                    const QHash<ReviewEdits::Span::Key, QUuid> &index, const QHash<QString, int> &clipSizes,
                    std::vector<QString> &notes)
{
    Groups groups;
    for (const auto &span : spans) {
        if (span.wordEnd < span.wordStart)
            throw BrokenDocumentError(QStringLiteral("review_edits: span %1[%2..<%3] is reversed")
                                          .arg(span.clip)
                                          .arg(span.wordStart)
                                          .arg(span.wordEnd)
                                          .toStdString());
        auto &group = groups[reasonRank(span.reason)];
        group.first = span.reason;
        // Only positions the clip has can be found; the rest are counted.
        const int size = clipSizes.value(span.clip, 0);
        qint64 found = 0;
        for (int position = std::max(span.wordStart, 0); position < std::min(span.wordEnd, size); ++position) {
            const auto id = index.constFind(ReviewEdits::Span::Key{span.clip, position});
            if (id != index.constEnd()) {
                group.second.insert(*id);
                ++found;
            }
        }
        const qint64 missing = static_cast<qint64>(span.wordEnd) - span.wordStart - found;
        if (missing > 0)
            notes.push_back(QStringLiteral("review_edits: %1 word(s) of %2[%3..<%4] are not in this build — skipped")
                                .arg(missing)
                                .arg(span.clip)
                                .arg(span.wordStart)
                                .arg(span.wordEnd));
    }
    return groups;
}

void addSpan(std::vector<ReviewEdits::Span> &list, const QString &clip, int position,
             const std::optional<CutReason> &reason)
{
    if (!list.empty()) {
        auto &last = list.back();
        if (last.clip == clip && last.reason == reason && last.wordEnd == position) {
            last.wordEnd = position + 1;
            return;
        }
    }
    list.push_back(ReviewEdits::Span{clip, position, position + 1, reason});
}

} // namespace

std::vector<QString> ReviewEdits::apply(Transcript &transcript) const
{
    QHash<Span::Key, QUuid> index;
    QHash<QString, int> clipSizes;
    index.reserve(static_cast<qsizetype>(transcript.words().size()));
    for (const auto &word : transcript.words()) {
        if (word.clipIndex < 0)
            continue;
        index.insert(Span::Key{word.clipId, word.clipIndex}, word.id);
        int &size = clipSizes[word.clipId];
        size = std::max(size, word.clipIndex + 1);
    }

    std::vector<QString> notes;
    const Groups restoring = resolveSpans(restores, index, clipSizes, notes);
    const Groups cutting = resolveSpans(cuts, index, clipSizes, notes);
    for (const auto &[rank, group] : restoring)
        transcript.setCutReason(std::nullopt, group.second);
    for (const auto &[rank, group] : cutting)
        transcript.setCutReason(group.first.value_or(CutReason::manual), group.second);
    return notes;
}

ReviewEdits ReviewEdits::diff(const Transcript &transcript, const QHash<QUuid, std::optional<CutReason>> &baseline,
                              std::vector<BoundaryOverride> boundaryOverrides,
                              const std::optional<std::vector<QString>> &clipOrder,
                              std::vector<WordlessCut> wordlessCuts, const std::optional<QString> &jobId)
{
    ReviewEdits edits;
    for (const auto &word : transcript.words()) {
        if (word.clipIndex < 0)
            continue;
        const auto found = baseline.constFind(word.id);
        if (found != baseline.constEnd()) {
            if (word.cutReason == *found)
                continue;
            if (!word.cutReason)
                addSpan(edits.restores, word.clipId, word.clipIndex, std::nullopt);
            else
                addSpan(edits.cuts, word.clipId, word.clipIndex, word.cutReason);
        } else if (word.cutReason) {
            addSpan(edits.cuts, word.clipId, word.clipIndex, word.cutReason);
        }
    }

    std::sort(boundaryOverrides.begin(), boundaryOverrides.end(), [](const auto &a, const auto &b) {
        if (a.clip != b.clip)
            return a.clip < b.clip;
        if (a.wordIndex != b.wordIndex)
            return a.wordIndex < b.wordIndex;
        return json::text(a.edge) < json::text(b.edge);
    });
    edits.boundaryOverrides = std::move(boundaryOverrides);
    edits.clipOrder = clipOrder;
    if (!wordlessCuts.empty()) {
        std::stable_sort(wordlessCuts.begin(), wordlessCuts.end(),
                         [](const WordlessCut &a, const WordlessCut &b) { return a.startS < b.startS; });
        edits.wordlessCuts = std::move(wordlessCuts);
    }
    edits.schema = 1;
    edits.jobId = jobId;
    return edits;
}

void ReviewEditsStore::save(const ReviewEdits &edits) const
{
    if (!path)
        return;
    if (edits.isEmpty()) {
        QFile::remove(*path);
        return;
    }
    try {
        QDir().mkpath(QFileInfo(*path).absolutePath());
        StageCoder::write(edits, *path);
    } catch (const std::exception &) {
        // The previous file stands; the next save tries again.
    }
}

namespace ProcessPipeline {

std::optional<ReviewEdits> loadReviewEdits(const QString &projectFolder)
{
    const QDir folder(projectFolder);
    auto edits = StageCoder::read<ReviewEdits>(folder.filePath(artifact::reviewEdits));
    if (!edits || edits->schema != 1)
        return std::nullopt;
    if (!edits->jobId)
        return edits;
    const auto stamp = StageCoder::read<ArtifactsJob>(folder.filePath(artifact::artifactsJob));
    if (!stamp || stamp->schema != 1 || stamp->jobId == *edits->jobId)
        return edits;

    const QString line = QStringLiteral("review_edits.json was written against job %1 but the artifacts are from %2 "
                                        "— dropping %3 cut(s), %4 restore(s) and %5 boundary override(s)")
                             .arg(*edits->jobId, stamp->jobId)
                             .arg(edits->cuts.size())
                             .arg(edits->restores.size())
                             .arg(edits->boundaryOverrides.size());
    std::fputs(qUtf8Printable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
    return std::nullopt;
}

} // namespace ProcessPipeline
} // namespace velum
