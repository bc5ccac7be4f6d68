// velum-cli review PROJECT_DIR --json OUT
//
// Builds the review model of a finished project folder exactly as the review
// opens it (the bundle, then the stored cuts and restores laid over it) and
// writes it as JSON. Session identities never appear: words, sources and
// paragraphs are referred to by their index in the output's arrays.

#include "Command.h"
#include "ReviewModel.h"

#include "review/Cutlist.h"

#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>

#include <cstdio>

namespace velum::cli {
namespace {

QJsonValue number(double value) { return QJsonValue(value); }

template <class T>
void insertIf(QJsonObject &object, const char *key, const std::optional<T> &value)
{
    if (value)
        object.insert(QLatin1String(key), json::encode(*value, json::KeyStyle::fieldNames));
}

QJsonObject reviewJson(const ProcessPipeline::ReviewBundle &bundle, const Transcript &transcript,
                       const std::vector<QString> &notes)
{
    QHash<QUuid, int> sourceIndex;
    QJsonArray sources;
    for (const auto &source : transcript.sources()) {
        sourceIndex.insert(source.id, static_cast<int>(sources.size()));
        QJsonObject s{{"filename", source.filename}, {"colorIndex", source.colorIndex},
                      {"kind", json::text(source.kind)}};
        insertIf(s, "url", source.url);
        sources.append(s);
    }

    QJsonArray words;
    for (const auto &w : transcript.words()) {
        QJsonObject o{{"text", w.text},
                      {"start", number(w.start)},
                      {"end", number(w.end)},
                      {"localStart", number(w.localStart)},
                      {"localEnd", number(w.localEnd)},
                      {"rawStart", number(w.rawStart)},
                      {"rawEnd", number(w.rawEnd)},
                      {"source", sourceIndex.value(w.sourceID, -1)},
                      {"clipId", w.clipId},
                      {"clipIndex", w.clipIndex},
                      {"isPauseToken", w.isPauseToken},
                      {"isKeptTic", w.isKeptTic},
                      {"isHiddenTrim", w.isHiddenTrim},
                      {"isUserCut", w.isUserCut}};
        insertIf(o, "wordIndex", w.wordIndex);
        insertIf(o, "cutReason", w.cutReason);
        words.append(o);
    }

    QJsonArray paragraphs;
    for (const auto &p : transcript.paragraphs()) {
        QJsonArray indices;
        for (const auto &w : p.words)
            indices.append(transcript.locations().value(w.id).order);
        paragraphs.append(QJsonObject{{"source", sourceIndex.value(p.sourceID, -1)}, {"words", indices}});
    }

    QJsonArray segments;
    for (const auto &s : transcript.segments()) {
        QJsonObject o{{"start", number(s.start)},
                      {"end", number(s.end)},
                      {"localStart", number(s.localStart)},
                      {"localEnd", number(s.localEnd)},
                      {"source", sourceIndex.value(s.sourceID, -1)},
                      {"isHiddenTrim", s.isHiddenTrim},
                      {"wordBacked", s.wordBacked}};
        insertIf(o, "cutReason", s.cutReason);
        segments.append(o);
    }

    QJsonArray kept;
    for (const auto &span : transcript.keptRanges().spans)
        kept.append(QJsonObject{{"timelineStart", number(span.timelineStart)},
                                {"timelineEnd", number(span.timelineEnd)},
                                {"keptStart", number(span.keptStart)}});

    const auto indexList = [](const std::vector<int> &list) {
        QJsonArray array;
        for (int i : list)
            array.append(i);
        return array;
    };

    const QJsonObject transcriptJson{{"sources", sources},
                                     {"paragraphs", paragraphs},
                                     {"words", words},
                                     {"segments", segments},
                                     {"duration", number(transcript.duration())},
                                     {"cutCount", transcript.cutCount()},
                                     {"keptDuration", number(transcript.keptDuration())},
                                     {"keptRanges", kept},
                                     {"paragraphsShowingCuts", indexList(transcript.paragraphsShowingCuts())},
                                     {"paragraphsHidingCuts", indexList(transcript.paragraphsHidingCuts())}};

    QJsonArray mediaClips;
    for (const auto &c : bundle.media.clips) {
        QJsonObject o{{"source", sourceIndex.value(c.sourceID, -1)},
                      {"clipId", c.clipId},
                      {"url", c.url.toString(QUrl::FullyEncoded)},
                      {"durationS", number(c.durationS)},
                      {"timelineStartS", number(c.timelineStartS)}};
        insertIf(o, "externalOffsetS", c.externalOffsetS);
        mediaClips.append(o);
    }
    QJsonObject media{{"clips", mediaClips}};
    insertIf(media, "externalURL", bundle.media.externalURL);
    if (bundle.media.externalSourceID)
        media.insert("externalSource", sourceIndex.value(*bundle.media.externalSourceID, -1));

    QJsonArray sections;
    for (const auto &section : bundle.sections) {
        QJsonArray spans;
        for (const auto &span : section.spans)
            spans.append(QJsonObject{{"clip", span.clip}, {"start", span.words.lower}, {"end", span.words.upper}});
        QJsonObject o{{"name", section.name}, {"order", section.order}, {"spans", spans}};
        insertIf(o, "about", section.about);
        sections.append(o);
    }

    QJsonArray noteArray;
    for (const auto &note : notes)
        noteArray.append(note);

    QJsonObject root{{"transcript", transcriptJson}, {"media", media}, {"sections", sections}, {"notes", noteArray}};
    insertIf(root, "language", bundle.language);
    return root;
}

int runReview(const QStringList &arguments)
{
    QString folder;
    QString out;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &a = arguments[i];
        if (a == QLatin1String("--json")) {
            if (i + 1 >= arguments.size())
                return usageError(QStringLiteral("--json needs a file name"));
            out = arguments[++i];
        } else if (a.startsWith(QLatin1Char('-'))) {
            return usageError(QStringLiteral("unknown option \"%1\"").arg(a));
        } else if (folder.isEmpty()) {
            folder = a;
        } else {
            return usageError(QStringLiteral("unexpected argument \"%1\"").arg(a));
        }
    }
    if (folder.isEmpty() || out.isEmpty())
        return usageError(QStringLiteral("usage: velum-cli review PROJECT_DIR --json OUT"));

    try {
        const auto model = loadReviewModel(folder);
        if (!model) {
            std::fprintf(stderr, "velum-cli: nothing to review in %s\n", qUtf8Printable(folder));
            return exitFailure;
        }
        const auto &bundle = model->bundle;
        std::vector<QString> notes = bundle.editNotes;
        notes.insert(notes.end(), bundle.planNotes.begin(), bundle.planNotes.end());
        notes.insert(notes.end(), model->applyNotes.begin(), model->applyNotes.end());
        writeFileAtomically(out, json::serialize(reviewJson(bundle, model->transcript, notes)));
    } catch (const std::exception &e) {
        return failure(e);
    }
    return exitOk;
}

const CommandRegistration registration{Command{
    "review", "PROJECT_DIR --json OUT",
    "build the review model of a finished project folder, stored edits laid over, and write it as JSON",
    runReview}};

} // namespace
} // namespace velum::cli
