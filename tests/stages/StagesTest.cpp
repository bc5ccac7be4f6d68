#include "model/ProjectWorkspace.h"
#include "stages/StageDocuments.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>

#include <functional>
#include <limits>
#include <span>
#include <variant>

using namespace velum;

namespace {

const QString clipA = QStringLiteral("9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08");
const QString clipB = QStringLiteral("60303ae22b998861bce3b28f33eec1be758a213c86c93c076dbe9f558c11c752");
const QString clipC = QStringLiteral("fd61a03af4f77d870fc21e05e7e80678095c92d808cfb3b5c279ee04c74aca13");
const QString externalClip = QStringLiteral("2c26b46b68ffc68ff99b453c1d30413413422d706483bfa0f98a5e886266e7ae");
const QString projectId = QStringLiteral("1B4E28BA-2FA1-11D2-883F-0016D3CCA427");
const QDateTime created = QDateTime::fromSecsSinceEpoch(1717400000, Qt::UTC);

analysis::Extraction extraction(const char *tool, const char *version)
{
    using Status = analysis::Extraction::Status;
    return {.signals = {
                {"probe", {.tool = tool, .version = version, .status = Status::fallback, .note = "1 clip(s) unreadable"}},
                {"clip_id", {.tool = "sha256", .version = "sha256/1", .status = Status::ok}},
            }};
}

C0Probe probe()
{
    ClipMedia media{.clipId = clipA,
                    .durationS = 612.48,
                    .fps = 29.97002997002997,
                    .width = 3840,
                    .height = 2160,
                    .videoCodec = "hevc",
                    .audioCodec = "aac",
                    .audioSampleRate = 48000,
                    .audioChannels = 2,
                    .startTimecode = MediaTimecode{.value = 1079078, .timescale = 30000, .text = "00:00:35;29"}};
    return C0Probe{
        .schemaVersion = 2,
        .projectId = projectId,
        .createdAt = created,
        .clips = {
            {.clipId = clipA, .filename = "A001_Señora.mov", .path = "/Volumes/Card 1/A001_Señora.mov",
             .role = ProjectFileRole::aRoll, .state = ProjectFileState::ok, .media = media},
            {.clipId = externalClip, .filename = "zoom.wav", .path = "/Users/me/Audio/zoom.wav",
             .role = ProjectFileRole::externalAudio, .state = ProjectFileState::warning,
             .note = "Sample rate 44.1 kHz", .media = ClipMedia{.clipId = externalClip, .durationS = 700}},
            {.clipId = "broken.mov", .filename = "broken.mov", .path = "/tmp/broken.mov",
             .role = ProjectFileRole::aRoll, .state = ProjectFileState::failed, .note = "Unreadable"},
        },
        .extraction = extraction("ffprobe", "ffmpeg/8.1"),
    };
}

C05Sync sync()
{
    return C05Sync{
        .projectId = projectId,
        .createdAt = created,
        .externalClipId = externalClip,
        .clips = {
            {.clipId = clipB, .filename = "A002.mov", .offsetS = 12.345, .confidence = 7.25,
             .syncSource = C05Sync::SyncSource::crossCorrelation, .isSynced = true, .shootingIndex = 1},
            {.clipId = clipA, .filename = "A001.mov", .syncSource = C05Sync::SyncSource::creationTime,
             .isSynced = false, .shootingIndex = 0, .note = "No confident match in the external track"},
            {.clipId = clipC, .filename = "A003.mov", .syncSource = C05Sync::SyncSource::filename,
             .isSynced = false, .shootingIndex = 1, .note = "No confident match in the external track"},
        },
        .extraction = {.signals = {{"sync", {.tool = "envelope-xcorr", .version = "audio-sync/1",
                                             .status = analysis::Extraction::Status::fallback,
                                             .note = "2 clip(s) unsynced"}}}},
    };
}

C1Transcript transcript()
{
    return C1Transcript{
        .schemaVersion = 3,
        .projectId = projectId,
        .createdAt = created,
        .clips = {
            {.clipId = clipA,
             .filename = "A001.mov",
             .words = {{.text = "So,", .start = 0.42, .end = 0.71, .confidence = 0.98, .isFiller = false},
                       {.text = "um…", .start = 0.9, .end = 1.3, .isFiller = true, .fillerConfidence = 0.87},
                       {.text = "«ça", .start = 1.5, .end = 1.62, .confidence = 0.5, .isFiller = false},
                       {.text = "marche»!", .start = 1.62, .end = 2.01, .isFiller = false}},
             .audioSource = C1Transcript::AudioSource::external,
             .language = "fr",
             .audioEvents = std::vector<AudioEvent>{{.label = "laughter", .start = 2.2, .end = 2.9}},
             .transcription = "So, um… «ça marche»!"},
            {.clipId = clipB,
             .filename = "A002.mov",
             .words = {},
             .audioSource = C1Transcript::AudioSource::none,
             .note = "No speech found"},
        },
        .extraction = extraction("whisper", "asr/2"),
    };
}

C1Plan plan()
{
    return C1Plan{
        .schemaVersion = 1,
        .clipOrder = {clipB, clipA},
        .subject = "Moving to Lisbon — the honest version",
        .sections = {{.start = 0, .end = 12, .name = "Hook", .about = "Why now"},
                     {.start = 12, .end = 340, .name = "Body"}},
        .totalWords = 340,
    };
}

ClipOrder order()
{
    return ClipOrder{
        .schemaVersion = 1,
        .projectId = projectId,
        .createdAt = created,
        .shootingOrder = {clipA, clipB, clipC},
        .timelineOrder = {clipC, clipA, clipB},
        .roles = {{clipA, ClipOrder::Role::body}, {clipB, ClipOrder::Role::outro}, {clipC, ClipOrder::Role::hook}},
        .source = ClipOrder::Source::shootingOrderFallback,
        .reason = "planner unavailable",
        .extraction = extraction("order", "order/1"),
    };
}

C2Takes takes()
{
    const C2Takes::Take first{.takeId = "t1", .clipId = clipA, .shootingIndex = 0, .wordStart = 3, .wordEnd = 9,
                              .startS = 1.5, .endS = 4.25, .excerpt = "«ça marche» — take one"};
    const C2Takes::Take second{.takeId = "t2", .clipId = clipB, .shootingIndex = 1, .wordStart = 0, .wordEnd = 6,
                               .startS = 0.2, .endS = 3.1, .excerpt = "ça marche, take two"};
    return C2Takes{
        .schemaVersion = 2,
        .projectId = projectId,
        .createdAt = created,
        .clusters = {{.clusterId = 4, .takes = {first, second}, .winnerByRule = "t2", .similarity = 0.91,
                      .anchor = "ça marche", .selfCheckPassed = true, .crossClip = true,
                      .confirmation = C2Takes::Confirmation::confirmed, .confirmationReason = "later take is cleaner",
                      .confirmationConfidence = 0.8}},
        .cuts = {{.clipId = clipA, .wordStart = 3, .wordEnd = 9, .startS = 1.5, .endS = 4.25,
                  .reason = "replaced by t2", .clusterId = 4},
                 {.clipId = clipB, .wordStart = 40, .wordEnd = 44, .startS = 20, .endS = 22.5,
                  .reason = "stumble", .clusterId = 5},
                 {.clipId = clipA, .wordStart = 20, .wordEnd = 20, .startS = 9, .endS = 9,
                  .reason = "empty", .clusterId = 6}},
        .extraction = extraction("retakes", "c2/7"),
        .rejectedRegions = {{.clusterId = 9, .takes = {first}, .winnerByRule = "t1", .similarity = 0.4,
                             .confirmation = C2Takes::Confirmation::rejected}},
    };
}

C3Cuts cuts()
{
    C3Cuts::Clip full{
        .clipId = clipA,
        .filename = "A001.mov",
        .fillerCuts = {{.wordStart = 1, .wordEnd = 2, .startS = 0.9, .endS = 1.3, .text = "um…"}},
        .chatterCuts = {{.wordStart = 30, .wordEnd = 34, .startS = 12, .endS = 14, .text = "anyway, where was I"}},
        .silenceCuts = {{.afterWord = -1, .startS = 0, .endS = 0.42, .removedMs = 300, .reason = CutReason::silence},
                        {.afterWord = 3, .startS = 2.01, .endS = 3.4, .removedMs = 1200}},
        .mergedIslands = {{.afterWord = 7, .startS = 5, .endS = 5.6, .removedMs = 600, .reason = CutReason::retake}},
        .fillerSource = LabelSource::mixed,
        .noiseCuts = {{.afterWord = 4, .startS = 2.2, .endS = 2.9, .label = "laughter"}},
        .hiddenSilenceCuts = {{.afterWord = 5, .startS = 3.5, .endS = 3.6, .removedMs = 100}},
        .demotedCuts = {{.wordStart = 8, .wordEnd = 9, .startS = 4, .endS = 4.2, .text = "like"}},
        .borderHesitations = {{.wordStart = 10, .wordEnd = 11, .startS = 4.5, .endS = 4.7, .text = "uh"}},
        .bandPauses = {{.afterWord = 12, .startS = 5.1, .endS = 5.5, .removedMs = 0}},
        .keptTics = {13, 17},
        .microRepeats = {{.wordStart = 14, .wordEnd = 16, .startS = 6, .endS = 6.3, .text = "the the"}},
        .severedRemnants = {{.wordStart = 18, .wordEnd = 19, .reason = "orphan", .absorbedInto = CutReason::offScript,
                             .text = "so"}},
        .keptAudioEvents = {{.afterWord = 20, .startS = 8, .endS = 8.4, .label = "clap"}},
        .keptMicroRepeats = {{.wordStart = 21, .wordEnd = 23, .startS = 8.5, .endS = 8.9, .text = "I I"}},
        .keptIslands = {{.wordStart = 24, .wordEnd = 26, .startS = 9, .endS = 9.5, .text = "short one"}},
    };
    C3Cuts::Clip bare{.clipId = clipB, .filename = "A002.mov", .fillerSource = LabelSource::lexicon};
    return C3Cuts{
        .schemaVersion = 4,
        .projectId = projectId,
        .createdAt = created,
        .params = {.pauseBandMs = 450, .pauseThresholdMs = 700, .seamTightnessMs = 120, .minClipS = 0.8,
                   .hesitationMode = profile::PolicyMode::conditional,
                   .hesitationThresholds = profile::HesitationThresholds{.maxDurationMs = 400, .maxGapMs = 250},
                   .keepAllTokens = std::vector<QString>{"you know", "ähm"},
                   .cutStyle = C3Cuts::CutStyleParams{.beforeP10Ms = 40, .beforeP50Ms = 90, .beforeP90Ms = 180,
                                                      .afterP10Ms = 60, .afterP50Ms = 110, .afterP90Ms = 240},
                   .source = "profile"},
        .clips = {full, bare, {.clipId = clipA, .filename = "duplicate", .fillerSource = LabelSource::llm}},
        .bandSplit = BandSplit{.keepRatio = 0.35, .splitMs = 820, .rawRatePerMin = 14.2, .rawBandCount = 88,
                               .keptCount = 31, .survivingSpeechS = 540.5, .source = "published"},
        .extraction = extraction("cleanup", "c3/12"),
    };
}

C3Seams seams()
{
    return C3Seams{
        .projectId = projectId,
        .createdAt = created,
        .clips = {{.clipId = clipA,
                   .seams = {{.wordIndex = 3, .edge = C3Seams::Edge::trailing, .offsetS = 0.12},
                             {.wordIndex = 9, .edge = C3Seams::Edge::leading, .offsetS = -1}}},
                  {.clipId = clipB, .seams = {}}},
        .extraction = extraction("seams", "c3/12"),
    };
}

C4Suggestions suggestions()
{
    return C4Suggestions{
        .schemaVersion = 1,
        .projectId = projectId,
        .createdAt = created,
        .suggestions = {
            {.id = "s-1", .kind = C4Suggestions::Kind::ramble, .clipId = clipA, .wordStart = 30, .wordEnd = 80,
             .startS = 12, .endS = 41.5, .reason = "This stretch wanders — 30 s without a point.",
             .evidence = {{"wpm", 171.5}, {"topic_shift", 0.82}}, .source = "c4"},
            {.id = "s-2", .kind = C4Suggestions::Kind::videoLength, .startS = 0, .endS = 612.48,
             .reason = "Longer than your usual videos", .evidence = {{"ratio", 1.6}}, .source = "profile"},
            {.id = "s-3", .kind = C4Suggestions::Kind::discourseFiller, .clipId = clipB, .wordStart = 2,
             .wordEnd = 3, .startS = 1, .endS = 1.2, .reason = "„also“ as a filler", .evidence = {}, .source = "c4"},
        },
        .extraction = extraction("suggest", "c4/2"),
    };
}

// One step into a JSON value: a key of an object or an index into an array.
using Step = std::variant<QString, int>;

// The value with what lies at the end of the path handed to change.
QJsonValue edited(const QJsonValue &value, std::span<const Step> path, const std::function<void(QJsonValue &)> &change)
{
    if (path.empty()) {
        QJsonValue copy = value;
        change(copy);
        return copy;
    }
    if (const auto *key = std::get_if<QString>(&path.front())) {
        QJsonObject object = value.toObject();
        object[*key] = edited(object.value(*key), path.subspan(1), change);
        return object;
    }
    QJsonArray array = value.toArray();
    const int index = std::get<int>(path.front());
    array[index] = edited(array.at(index), path.subspan(1), change);
    return array;
}

std::function<void(QJsonValue &)> setTo(const QJsonValue &replacement)
{
    return [replacement](QJsonValue &value) { value = replacement; };
}

std::function<void(QJsonValue &)> without(const QStringList &keys)
{
    return [keys](QJsonValue &value) {
        QJsonObject object = value.toObject();
        for (const QString &key : keys)
            object.remove(key);
        value = object;
    };
}

template <class T>
T withVersion(T document, int version)
{
    document.schemaVersion = version;
    return document;
}

// A project folder with documents written by the stage coder, and the means
// to spoil them.
class StageFolder : public ::testing::Test {
protected:
    test::TempDir dir;

    QString path(QLatin1StringView name) const { return dir.path() + QLatin1Char('/') + name; }

    template <class T>
    void write(const T &document, QLatin1StringView name) const
    {
        StageCoder::write(document, path(name));
    }

    QJsonObject object(QLatin1StringView name) const { return json::parse(test::readBytes(path(name))).toObject(); }

    void put(const QJsonObject &object, QLatin1StringView name) const
    {
        test::writeBytes(path(name), json::serialize(object));
    }

    // Rewrites a file with one value in it changed.
    void change(QLatin1StringView name, const std::vector<Step> &at, const std::function<void(QJsonValue &)> &how) const
    {
        put(edited(object(name), at, how).toObject(), name);
    }

    // The document as read back after writing it.
    template <class T>
    std::optional<T> readBack(const T &document, QLatin1StringView name,
                              std::optional<T> (*load)(const QString &)) const
    {
        write(document, name);
        return load(dir.path());
    }

    void writeAll() const
    {
        write(probe(), artifact::c0Probe);
        write(sync(), artifact::c05Sync);
        write(transcript(), artifact::c1Transcript);
        write(plan(), artifact::c1Plan);
        write(order(), artifact::c15Order);
        write(takes(), artifact::c2Takes);
        write(cuts(), artifact::c3Cuts);
        write(seams(), artifact::c3Seams);
        write(suggestions(), artifact::c4Suggestions);
    }
};

// --- Round trips ---------------------------------------------------------------

TEST_F(StageFolder, EveryDocumentReadsBackAsWritten)
{
    writeAll();
    EXPECT_EQ(StageDocuments::loadC0Probe(dir.path()), probe());
    EXPECT_EQ(StageDocuments::loadC05Sync(dir.path()), sync());
    EXPECT_EQ(StageDocuments::loadC1Transcript(dir.path()), transcript());
    EXPECT_EQ(StageDocuments::loadC1Plan(dir.path()), plan());
    EXPECT_EQ(StageDocuments::loadClipOrder(dir.path()), order());
    EXPECT_EQ(StageDocuments::loadC2Takes(dir.path()), takes());
    EXPECT_EQ(StageDocuments::loadC3Cuts(dir.path()), cuts());
    EXPECT_EQ(StageDocuments::loadC3Seams(dir.path()), seams());
    EXPECT_EQ(StageDocuments::loadC4Suggestions(dir.path()), suggestions());
}

TEST_F(StageFolder, KeysOnDiskAreSnakeCaseAndEmptyOptionalsAreLeftOut)
{
    write(probe(), artifact::c0Probe);
    write(transcript(), artifact::c1Transcript);
    write(cuts(), artifact::c3Cuts);
    write(sync(), artifact::c05Sync);

    const QJsonObject c0 = object(artifact::c0Probe);
    EXPECT_EQ(c0.value("schema_version").toInt(), 2);
    EXPECT_EQ(c0.value("project_id").toString(), projectId);
    EXPECT_EQ(c0.value("created_at").toString(), "2024-06-03T07:33:20Z");
    const QJsonObject clip0 = c0.value("clips").toArray().at(0).toObject();
    EXPECT_EQ(clip0.value("role").toString(), "a_roll");
    EXPECT_EQ(clip0.value("media").toObject().value("start_timecode").toObject().value("timescale").toInt(), 30000);
    EXPECT_FALSE(clip0.contains("note"));
    const QJsonObject probeSignal = c0.value("extraction").toObject().value("signals").toObject().value("probe").toObject();
    EXPECT_EQ(probeSignal.value("status").toString(), "fallback");
    EXPECT_EQ(probeSignal.value("version").toString(), "ffmpeg/8.1");

    const QJsonObject word = object(artifact::c1Transcript)
                                 .value("clips").toArray().at(0).toObject()
                                 .value("words").toArray().at(1).toObject();
    EXPECT_EQ(word.value("is_filler"), QJsonValue(true));
    EXPECT_EQ(word.value("filler_confidence").toDouble(), 0.87);
    EXPECT_EQ(word.value("text").toString(), "um…");
    EXPECT_FALSE(word.contains("confidence"));

    const QJsonObject c3 = object(artifact::c3Cuts);
    const QJsonObject style = c3.value("params").toObject().value("cut_style").toObject();
    EXPECT_EQ(style.value("before_p10_ms").toDouble(), 40);
    EXPECT_EQ(style.value("after_p90_ms").toDouble(), 240);
    EXPECT_EQ(c3.value("params").toObject().value("hesitation_mode").toString(), "conditional");
    EXPECT_EQ(c3.value("band_split").toObject().value("raw_rate_per_min").toDouble(), 14.2);
    const QJsonObject cutClip = c3.value("clips").toArray().at(0).toObject();
    EXPECT_EQ(cutClip.value("filler_cuts").toArray().at(0).toObject().value("word_start").toInt(), 1);
    EXPECT_EQ(cutClip.value("silence_cuts").toArray().at(0).toObject().value("after_word").toInt(), -1);
    EXPECT_EQ(cutClip.value("severed_remnants").toArray().at(0).toObject().value("absorbed_into").toString(),
              "off_script");

    const QJsonObject c05 = object(artifact::c05Sync);
    EXPECT_EQ(c05.value("external_clip_id").toString(), externalClip);
    const QJsonObject syncClip = c05.value("clips").toArray().at(0).toObject();
    EXPECT_EQ(syncClip.value("sync_source").toString(), "cross_correlation");
    EXPECT_EQ(syncClip.value("is_synced"), QJsonValue(true));
    EXPECT_EQ(syncClip.value("offset_s").toDouble(), 12.345);
    EXPECT_FALSE(c05.value("clips").toArray().at(1).toObject().contains("offset_s"));
}

TEST_F(StageFolder, InfiniteSyncConfidenceIsWrittenAsTheLargestFiniteNumber)
{
    C05Sync document = sync();
    document.clips[0].confidence = std::numeric_limits<double>::infinity();
    const auto back = readBack(document, artifact::c05Sync, StageDocuments::loadC05Sync);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->clips[0].confidence, std::numeric_limits<double>::max());
}

// --- Decoding rules ------------------------------------------------------------

TEST_F(StageFolder, CutsClipWithoutOptionalListsReadsThemEmptyButNotWithoutRequiredOnes)
{
    write(cuts(), artifact::c3Cuts);
    change(artifact::c3Cuts, {"clips", 0},
           without({"chatter_cuts", "noise_cuts", "kept_tics", "severed_remnants", "kept_islands"}));

    const auto lenient = StageDocuments::loadC3Cuts(dir.path());
    ASSERT_TRUE(lenient);
    const C3Cuts::Clip &clip = lenient->clips.at(0);
    EXPECT_TRUE(clip.chatterCuts.empty());
    EXPECT_TRUE(clip.noiseCuts.empty());
    EXPECT_TRUE(clip.keptTics.empty());
    EXPECT_TRUE(clip.severedRemnants.empty());
    EXPECT_EQ(clip.fillerCuts, cuts().clips[0].fillerCuts);
    EXPECT_EQ(clip.keptMicroRepeats, cuts().clips[0].keptMicroRepeats);

    for (const char *required : {"silence_cuts", "filler_cuts", "merged_islands", "filler_source", "filename"}) {
        change(artifact::c3Cuts, {"clips", 0}, without({required}));
        EXPECT_FALSE(StageDocuments::loadC3Cuts(dir.path())) << required;
        EXPECT_THROW(StageCoder::decode<C3Cuts>(test::readBytes(path(artifact::c3Cuts))), json::DecodingError)
            << required;
        write(cuts(), artifact::c3Cuts);
    }
}

TEST_F(StageFolder, RequiredTopLevelKeysAndOptionalBlocks)
{
    write(cuts(), artifact::c3Cuts);
    change(artifact::c3Cuts, {}, without({"band_split"}));
    change(artifact::c3Cuts, {"params"}, without({"cut_style", "keep_all_tokens", "hesitation_thresholds"}));
    const auto read = StageDocuments::loadC3Cuts(dir.path());
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->bandSplit);
    EXPECT_FALSE(read->params.cutStyle);
    EXPECT_FALSE(read->params.keepAllTokens);
    EXPECT_DOUBLE_EQ(read->params.seamS(), 0.12);

    change(artifact::c3Cuts, {}, without({"extraction"}));
    EXPECT_FALSE(StageDocuments::loadC3Cuts(dir.path()));

    // The plan has no project, date or trailer of its own.
    write(plan(), artifact::c1Plan);
    const QJsonObject planDoc = object(artifact::c1Plan);
    EXPECT_FALSE(planDoc.contains("project_id"));
    EXPECT_FALSE(planDoc.contains("extraction"));
    EXPECT_FALSE(planDoc.contains("plan_fallback"));

    // C2Takes: every top-level list is required.
    write(takes(), artifact::c2Takes);
    change(artifact::c2Takes, {}, without({"rejected_regions"}));
    EXPECT_FALSE(StageDocuments::loadC2Takes(dir.path()));
}

TEST_F(StageFolder, UnknownOrMalformedSuggestionsAreDroppedOneByOne)
{
    write(suggestions(), artifact::c4Suggestions);
    change(artifact::c4Suggestions, {"suggestions", 1, "kind"}, setTo("thumbnail_swap"));

    auto read = StageDocuments::loadC4Suggestions(dir.path());
    ASSERT_TRUE(read);
    ASSERT_EQ(read->suggestions.size(), 2u);
    EXPECT_EQ(read->suggestions[0], suggestions().suggestions[0]);
    EXPECT_EQ(read->suggestions[1], suggestions().suggestions[2]);

    // Wrong types, a missing required key and a non-object are dropped too.
    QJsonObject doc = object(artifact::c4Suggestions);
    const QJsonArray list = doc.value("suggestions").toArray();
    QJsonObject wrongType = list.at(0).toObject();
    wrongType["word_start"] = "thirty";
    QJsonObject missingReason = list.at(2).toObject();
    missingReason.remove("reason");
    QJsonObject badEvidence = list.at(2).toObject();
    badEvidence["evidence"] = QJsonObject{{"ratio", "high"}};
    doc["suggestions"] = QJsonArray{wrongType, missingReason, 42, QJsonValue::Null, badEvidence, list.at(2)};
    put(doc, artifact::c4Suggestions);
    read = StageDocuments::loadC4Suggestions(dir.path());
    ASSERT_TRUE(read);
    ASSERT_EQ(read->suggestions.size(), 1u);
    EXPECT_EQ(read->suggestions[0].id, "s-3");
    EXPECT_EQ(read->extraction, suggestions().extraction);

    // The rest of the document stays strict.
    doc["suggestions"] = QJsonObject{};
    put(doc, artifact::c4Suggestions);
    EXPECT_FALSE(StageDocuments::loadC4Suggestions(dir.path()));
    doc["suggestions"] = list;
    doc.remove("created_at");
    put(doc, artifact::c4Suggestions);
    EXPECT_FALSE(StageDocuments::loadC4Suggestions(dir.path()));
}

// Where decoding stops, or "decoded" if it does not.
template <class T>
QString decodingErrorPath(const QByteArray &bytes)
{
    try {
        (void)StageCoder::decode<T>(bytes);
    } catch (const json::DecodingError &e) {
        return e.path();
    }
    return QStringLiteral("decoded");
}

TEST_F(StageFolder, AnUnknownSeamEdgeOrABackwardRetakeCutMakesTheWholeDocumentAbsent)
{
    write(seams(), artifact::c3Seams);
    change(artifact::c3Seams, {"clips", 0, "seams", 1, "edge"}, setTo("middle"));
    EXPECT_FALSE(StageDocuments::loadC3Seams(dir.path()));
    EXPECT_EQ(decodingErrorPath<C3Seams>(test::readBytes(path(artifact::c3Seams))), "clips[0].seams[1].edge");

    C2Takes document = takes();
    document.cuts[1].wordEnd = 39;
    write(document, artifact::c2Takes);
    EXPECT_FALSE(StageDocuments::loadC2Takes(dir.path()));
    EXPECT_EQ(decodingErrorPath<C2Takes>(test::readBytes(path(artifact::c2Takes))), "cuts[1].word_end");
}

// --- Schema versions -----------------------------------------------------------

TEST_F(StageFolder, SchemaVersionsDecideWhatIsRead)
{
    EXPECT_FALSE(readBack(withVersion(probe(), 1), artifact::c0Probe, StageDocuments::loadC0Probe));
    EXPECT_FALSE(readBack(withVersion(probe(), 3), artifact::c0Probe, StageDocuments::loadC0Probe));
    EXPECT_FALSE(readBack(withVersion(takes(), 1), artifact::c2Takes, StageDocuments::loadC2Takes));
    EXPECT_FALSE(readBack(withVersion(seams(), 1), artifact::c3Seams, StageDocuments::loadC3Seams));

    // No version test for these: an older file that decodes is used.
    EXPECT_EQ(readBack(withVersion(cuts(), 1), artifact::c3Cuts, StageDocuments::loadC3Cuts), withVersion(cuts(), 1));
    EXPECT_EQ(readBack(withVersion(sync(), 7), artifact::c05Sync, StageDocuments::loadC05Sync), withVersion(sync(), 7));
    EXPECT_EQ(readBack(withVersion(suggestions(), 9), artifact::c4Suggestions, StageDocuments::loadC4Suggestions),
              withVersion(suggestions(), 9));

    // The plan comes back as decoded; its rule is applied where sections are
    // resolved.
    C1Plan newerPlan = plan();
    newerPlan.schemaVersion = 2;
    newerPlan.planFallback = true;
    write(newerPlan, artifact::c1Plan);
    const auto readPlan = StageDocuments::loadC1Plan(dir.path());
    ASSERT_TRUE(readPlan);
    EXPECT_EQ(readPlan->schemaVersion, 2);
    EXPECT_EQ(readPlan->planFallback, true);
}

// --- Unreadable files ----------------------------------------------------------

TEST_F(StageFolder, MissingTruncatedMistypedOrFolderFilesAreAbsent)
{
    const auto allAbsent = [&](const char *what) {
        EXPECT_FALSE(StageDocuments::loadC0Probe(dir.path())) << what;
        EXPECT_FALSE(StageDocuments::loadC05Sync(dir.path())) << what;
        EXPECT_FALSE(StageDocuments::loadC1Transcript(dir.path())) << what;
        EXPECT_FALSE(StageDocuments::loadC1Plan(dir.path())) << what;
        EXPECT_FALSE(StageDocuments::loadClipOrder(dir.path())) << what;
        EXPECT_FALSE(StageDocuments::loadC2Takes(dir.path())) << what;
        EXPECT_FALSE(StageDocuments::loadC3Cuts(dir.path())) << what;
        EXPECT_FALSE(StageDocuments::loadC3Seams(dir.path())) << what;
        EXPECT_FALSE(StageDocuments::loadC4Suggestions(dir.path())) << what;
    };
    const std::array names{artifact::c0Probe, artifact::c05Sync, artifact::c1Transcript,
                           artifact::c1Plan, artifact::c15Order, artifact::c2Takes,
                           artifact::c3Cuts, artifact::c3Seams, artifact::c4Suggestions};

    allAbsent("empty folder");
    EXPECT_FALSE(StageDocuments::loadC0Probe(dir.file("no/such/project")));

    // Truncated halfway through.
    writeAll();
    for (const auto name : names) {
        const QByteArray whole = test::readBytes(path(name));
        test::writeBytes(path(name), whole.left(whole.size() / 2));
    }
    allAbsent("truncated");

    // Valid JSON of the wrong shape, and nothing at all.
    for (const char *content : {R"({"schema_version":"2","project_id":7,"clips":{}})", "[]", ""}) {
        for (const auto name : names)
            test::writeBytes(path(name), content);
        allAbsent(content);
    }

    // A folder where the file should be.
    for (const auto name : names) {
        QFile::remove(path(name));
        ASSERT_TRUE(QDir(dir.path()).mkdir(name));
    }
    allAbsent("folders");
}

TEST_F(StageFolder, WrongTypesDeepInsideFailTheDocument)
{
    write(transcript(), artifact::c1Transcript);
    change(artifact::c1Transcript, {"clips", 0, "words", 2, "is_filler"}, setTo(0));
    EXPECT_FALSE(StageDocuments::loadC1Transcript(dir.path()));
    change(artifact::c1Transcript, {"clips", 0, "words", 2}, without({"is_filler"}));
    EXPECT_FALSE(StageDocuments::loadC1Transcript(dir.path()));

    write(order(), artifact::c15Order);
    change(artifact::c15Order, {"roles"}, setTo(QJsonObject{{clipA, "cameo"}}));
    EXPECT_FALSE(StageDocuments::loadClipOrder(dir.path()));

    write(probe(), artifact::c0Probe);
    change(artifact::c0Probe, {"extraction", "signals", "probe", "status"}, setTo("degraded"));
    EXPECT_FALSE(StageDocuments::loadC0Probe(dir.path()));
}

// --- Lookups -------------------------------------------------------------------

TEST(StageLookups, ClipFindsTheFirstMatchOrNothing)
{
    const C3Cuts c3 = cuts();
    ASSERT_NE(c3.clip(clipA), nullptr);
    EXPECT_EQ(c3.clip(clipA)->filename, "A001.mov");
    EXPECT_EQ(c3.clip(clipA), &c3.clips[0]);
    EXPECT_EQ(c3.clip(clipB), &c3.clips[1]);
    EXPECT_EQ(c3.clip(clipC), nullptr);
    EXPECT_EQ(c3.clip(clipA.toUpper()), nullptr);

    const C0Probe c0 = probe();
    EXPECT_EQ(c0.clip(externalClip), &c0.clips[1]);
    EXPECT_EQ(c0.clip("broken.mov")->state, ProjectFileState::failed);
    EXPECT_EQ(c0.clip(""), nullptr);
    // Usable clips leave out failed ones.
    const auto usable = c0.usableClips();
    ASSERT_EQ(usable.size(), 2u);
    EXPECT_EQ(usable[0].clipId, clipA);
    EXPECT_EQ(usable[1].clipId, externalClip);

    const C05Sync c05 = sync();
    EXPECT_EQ(c05.clip(clipC), &c05.clips[2]);
    EXPECT_EQ(c05.clip(externalClip), nullptr);

    const C3Seams c3s = seams();
    EXPECT_EQ(c3s.clip(clipB), &c3s.clips[1]);
    EXPECT_EQ(c3s.clip(clipC), nullptr);
    EXPECT_EQ(c3s.clips[0].seams[0].extensionS(), 0.12);
    EXPECT_EQ(c3s.clips[0].seams[1].extensionS(), std::nullopt);
}

TEST(StageLookups, RetakeCutsOfOneClipKeepDocumentOrder)
{
    const C2Takes c2 = takes();
    const auto forA = c2.cutsFor(clipA);
    ASSERT_EQ(forA.size(), 2u);
    EXPECT_EQ(forA[0].clusterId, 4);
    EXPECT_EQ(forA[1].clusterId, 6);
    EXPECT_EQ(c2.cutsFor(clipB).size(), 1u);
    EXPECT_TRUE(c2.cutsFor(clipC).empty());
}

TEST(StageLookups, ShootingOrderIsAStableSortByIndex)
{
    C05Sync c05 = sync();
    // clipB and clipC share index 1: they keep their document order.
    EXPECT_EQ(c05.shootingOrder(), (QStringList{clipA, clipB, clipC}));
    c05.clips[2].shootingIndex = -3;
    EXPECT_EQ(c05.shootingOrder(), (QStringList{clipC, clipA, clipB}));
    c05.clips.clear();
    EXPECT_TRUE(c05.shootingOrder().isEmpty());
}

} // namespace
