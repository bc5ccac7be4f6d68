#include "style/Analysis.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

using namespace velum;

namespace {

const QByteArray minimalDocument = R"({
  "schema_version": 3,
  "video_id": "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08",
  "meta": {
    "filename": "How I edit.mp4", "path": "/Users/me/Movies/How I edit.mp4",
    "duration_s": 612.4, "fps": 29.97, "width": 1920, "height": 1080,
    "size_bytes": 4831838208, "ingested_at": "2025-03-02T08:00:00Z"
  },
  "extraction": {"signals": {"cuts": {"tool": "ffmpeg", "version": "scdet/3", "status": "ok"}}}
})";

// Every optional block present.
const QByteArray fullDocument = R"({
  "schema_version": 3,
  "video_id": "abc",
  "meta": {
    "filename": "v.mp4", "path": "/v.mp4", "duration_s": 60, "fps": 25, "width": 1280, "height": 720,
    "video_codec": "h264", "audio_codec": "aac", "size_bytes": 1000, "language": "en",
    "published_at": "2024-12-24T18:30:00+02:00", "ingested_at": "2025-03-02T08:00:00Z"
  },
  "transcript": {
    "words": [
      {"text": "So,", "start": 0.1, "end": 0.4, "confidence": 0.98, "is_filler": false},
      {"text": "um", "start": 0.6, "end": 0.9, "is_filler": true, "filler_confidence": 0.8}
    ],
    "wpm": 172.5, "active_speech_s": 51.2, "speech_density": 0.85,
    "fillers": {"count": 4, "per_min": 4.0, "by_text": {"um": 3, "you know": 1}, "source": "mixed"},
    "suspected_fillers": {"count": 2, "per_min": 2.0}
  },
  "pauses": {
    "count": 30, "p50_ms": 310, "p90_ms": 720, "max_ms": 1900, "dramatic_threshold_ms": 1200,
    "dramatic_count": 2, "dramatic_per_min": 2,
    "histogram": [{"from_ms": 0, "to_ms": 250, "count": 12}, {"from_ms": 250, "count": 18}],
    "events": [{"t": 12.5, "ms": 1900, "before": "right", "after": "So"}],
    "holes": []
  },
  "cuts": {
    "events": [{"t": 4.2, "score": 17.5, "confidence": 0.9}],
    "cuts_per_min": 9.5, "shot_count": 10, "asl_s": 6.1, "msl_s": 4.8, "min_clip_s": 0.9, "threshold_score": 3.5
  },
  "seams": {"count": 1, "median_ms": 80, "p90_ms": 140, "events": [{"t": 4.2, "gap_ms": 80, "before": "a", "after": "b"}]},
  "cut_style": {
    "cut_count": 10, "handle_n": 8,
    "before_handle": {"p10_ms": 20, "p50_ms": 90, "p90_ms": 200},
    "sentence_boundary_ratio": 0.7, "mid_speech_ratio": 0.2, "shot_length_p50_s": 4.8, "shot_length_p90_s": 12,
    "events": [{"t": 4.2, "before_ms": 90, "mid_word": false, "sentence_end": true}]
  },
  "structure": {
    "hook": {"start_s": 0, "end_s": 14.5, "label": "cold open"},
    "cta": [{"start_s": 50, "end_s": 55}], "sponsors": [], "source": "heuristic"
  },
  "broll": {"spans": ["12.0-15.5"]},
  "extraction": {"signals": {"asr": {"tool": "service", "version": "asr/2", "status": "fallback", "note": "retried"}}}
})";

TEST(AnalysisDocument, MinimalDocumentReads)
{
    const auto doc = StageCoder::decode<Analysis>(minimalDocument);
    EXPECT_EQ(doc.schemaVersion, 3);
    EXPECT_EQ(doc.meta.sizeBytes, 4831838208LL);
    EXPECT_EQ(doc.meta.ingestedAt, QDateTime::fromSecsSinceEpoch(1740902400, Qt::UTC));
    EXPECT_FALSE(doc.meta.publishedAt);
    EXPECT_FALSE(doc.transcript);
    EXPECT_FALSE(doc.pauses);
    EXPECT_FALSE(doc.cuts);
    EXPECT_FALSE(doc.seams);
    EXPECT_FALSE(doc.cutStyle);
    EXPECT_FALSE(doc.structure);
    EXPECT_FALSE(doc.broll);
    EXPECT_EQ(doc.extraction.signals.at("cuts").status, Analysis::Extraction::Status::ok);
}

TEST(AnalysisDocument, EveryBlockReadsAndRoundTrips)
{
    const auto doc = StageCoder::decode<Analysis>(fullDocument);
    ASSERT_TRUE(doc.transcript);
    EXPECT_EQ(doc.transcript->words.size(), 2u);
    EXPECT_TRUE(doc.transcript->words[1].isFiller);
    EXPECT_EQ(doc.transcript->fillers.byText.at("you know"), 1);
    EXPECT_EQ(doc.transcript->fillers.source, LabelSource::mixed);
    EXPECT_EQ(doc.meta.publishedAt, QDateTime::fromSecsSinceEpoch(1735057800, Qt::UTC));
    ASSERT_TRUE(doc.pauses);
    ASSERT_EQ(doc.pauses->histogram.size(), 2u);
    EXPECT_EQ(doc.pauses->histogram[0].toMs, 250.0);
    EXPECT_FALSE(doc.pauses->histogram[1].toMs) << "the last bin is open";
    EXPECT_EQ(doc.pauses->holes, std::vector<SpeechMetrics::PauseEvent>{});
    ASSERT_TRUE(doc.cuts);
    EXPECT_EQ(doc.cuts->events.size(), 1u);
    EXPECT_EQ(doc.cuts->aslS, 6.1);
    EXPECT_EQ(doc.seams->events[0].gapMs, 80);
    EXPECT_TRUE(doc.cutStyle->beforeHandle);
    EXPECT_FALSE(doc.cutStyle->afterHandle);
    EXPECT_FALSE(doc.cutStyle->events[0].afterMs);
    EXPECT_EQ(doc.structure->source, Analysis::StructureBlock::Source::heuristic);
    EXPECT_EQ(doc.structure->hook->label, "cold open");
    EXPECT_FALSE(doc.structure->outro);
    EXPECT_FALSE(doc.structure->cta[0].label);
    EXPECT_EQ(doc.broll->spans, std::vector<QString>{"12.0-15.5"});
    EXPECT_EQ(doc.extraction.signals.at("asr").note, "retried");

    const QByteArray written = StageCoder::encode(doc);
    EXPECT_TRUE(written.contains("\"asl_s\" : 6.1"));
    EXPECT_TRUE(written.contains("\"handle_n\" : 8"));
    EXPECT_TRUE(written.contains("\"you know\" : 1")) << "dictionary keys are data";
    EXPECT_EQ(StageCoder::decode<Analysis>(written), doc);
}

TEST(AnalysisDocument, UnknownTextsAndMissingPartsMakeItUnreadable)
{
    test::TempDir dir;
    const QString path = dir.file("abc.json");
    const auto readsWith = [&](const QByteArray &from, const QByteArray &to) {
        QByteArray bytes = fullDocument;
        bytes.replace(from, to);
        EXPECT_NE(bytes, fullDocument) << from.constData();
        test::writeBytes(path, bytes);
        return StageCoder::read<Analysis>(path).has_value();
    };
    EXPECT_TRUE(readsWith("\"status\": \"fallback\"", "\"status\": \"skipped\""));
    EXPECT_FALSE(readsWith("\"status\": \"fallback\"", "\"status\": \"partial\""));
    EXPECT_FALSE(readsWith("\"source\": \"heuristic\"", "\"source\": \"manual\""));
    EXPECT_FALSE(readsWith("\"source\": \"mixed\"", "\"source\": \"guess\""));
    EXPECT_FALSE(readsWith("\"size_bytes\": 1000", "\"size_bytes\": 10.5"));
    EXPECT_FALSE(readsWith("\"is_filler\": true", "\"filler\": true"));
    EXPECT_FALSE(readsWith("\"ingested_at\": \"2025-03-02T08:00:00Z\"", "\"ingested_at\": \"yesterday\""));

    QJsonObject noExtraction = json::parse(minimalDocument).toObject();
    noExtraction.remove("extraction");
    EXPECT_THROW(StageCoder::decode<Analysis>(json::serialize(noExtraction)), json::DecodingError);
}

} // namespace
