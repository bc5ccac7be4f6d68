#include "style/Profile.h"

#include <gtest/gtest.h>

using namespace velum;

namespace {

// A profile document as the service sends it.
const QByteArray fullDocument = R"({
  "schema_version": 4,
  "built_at": "2025-02-01T10:00:00Z",
  "video_ids": ["a1b2", "c3d4"],
  "params": {
    "pause_p50_ms": {"target": 420.5, "tolerance": 80, "n": 312, "tolerance_source": "measured", "unit": "ms"},
    "seamTightness": {"target": 90, "tolerance": 25, "n": 3, "tolerance_source": "prior", "unit": "ms"}
  },
  "filler_policy": {
    "hesitations": {
      "mode": "conditional", "rate_per1000": 12.5, "n": 48, "source": "measured",
      "duration_p50_ms": 310, "duration_p95_ms": 720, "duration_p97_ms": 810, "gap_p95_ms": 400,
      "sentence_initial_share": 0.35,
      "thresholds": {"max_duration_ms": 650, "max_gap_ms": 300}
    },
    "discourse": {
      "like": {"mode": "suggest", "rate_per1000": 3.1, "n": 14, "source": "measured"},
      "you know": {"mode": "keep_all", "rate_per1000": 0.4, "n": 2, "source": "default"}
    },
    "labeler": "llm-v2",
    "micro_repeat": {"mode": "cut_all", "rate_per1000": 1.0, "n": 5, "source": "default"}
  },
  "cut_style": {
    "before_handle_ms": {"p10_ms": 40, "p50_ms": 120, "p90_ms": 260},
    "after_handle_ms": {"p10_ms": 60, "p50_ms": 150, "p90_ms": 300},
    "sentence_boundary_ratio": 0.8, "mid_speech_ratio": 0.1,
    "shot_length_p50_s": 4.2, "shot_length_p90_s": 11.5, "n": 210, "source": "measured"
  },
  "summary": "Tight seams, keeps the odd 'like'.",
  "style_notes": {
    "hesitation_note": "Cuts most ums.",
    "discourse_notes": {"like": "kept when it carries emphasis"},
    "catchphrases": ["let's get into it"],
    "segment_names": ["Intro", "Verdict"],
    "built_at": "2025-02-01T10:05:00+01:00",
    "prompt_version": "notes/3",
    "builder_version": "1.8.0",
    "video_count": 2,
    "edited": false
  }
})";

TEST(ProfileDocument, ReadsEveryBlockUnderSnakeCaseKeys)
{
    const auto profile = StageCoder::decode<Profile>(fullDocument);
    EXPECT_EQ(profile.schemaVersion, 4);
    EXPECT_EQ(profile.builtAt, QDateTime::fromString("2025-02-01T10:00:00Z", Qt::ISODate));
    EXPECT_EQ(profile.videoIds, (std::vector<QString>{"a1b2", "c3d4"}));
    ASSERT_EQ(profile.params.size(), 2u);
    EXPECT_EQ(profile.params.at("pause_p50_ms").target, 420.5);
    EXPECT_EQ(profile.params.at("seamTightness").toleranceSource, ToleranceSource::prior) << "map keys are data";
    const auto &hesitations = profile.fillerPolicy.hesitations;
    EXPECT_EQ(hesitations.mode, Profile::PolicyMode::conditional);
    EXPECT_EQ(hesitations.ratePer1000, 12.5);
    EXPECT_EQ(hesitations.thresholds, (Profile::HesitationThresholds{650, 300}));
    EXPECT_EQ(profile.fillerPolicy.discourse.at("you know").mode, Profile::TokenMode::keepAll);
    EXPECT_EQ(profile.fillerPolicy.discourse.at("you know").source, Profile::PolicySource::default_);
    EXPECT_EQ(profile.fillerPolicy.microRepeat->mode, Profile::PolicyMode::cutAll);
    EXPECT_EQ(profile.cutStyle.afterHandleMs.p90Ms, 300);
    ASSERT_TRUE(profile.styleNotes);
    EXPECT_EQ(profile.styleNotes->builtAt, QDateTime::fromSecsSinceEpoch(1738400700, Qt::UTC));
    EXPECT_EQ(profile.styleNotes->discourseNotes.at("like"), "kept when it carries emphasis");

    // Written back in the same key form, it reads as the same record.
    const QByteArray written = StageCoder::encode(profile);
    EXPECT_TRUE(written.contains("\"rate_per1000\" : 12.5"));
    EXPECT_TRUE(written.contains("\"source\" : \"default\""));
    EXPECT_EQ(StageCoder::decode<Profile>(written), profile);
}

QJsonObject documentObject()
{
    return json::parse(fullDocument).toObject();
}

Profile decodeObject(const QJsonObject &object)
{
    return StageCoder::decode<Profile>(json::serialize(object));
}

TEST(ProfileDocument, OptionalBlocksMayBeAbsent)
{
    QJsonObject object = documentObject();
    object.remove("style_notes");
    QJsonObject filler = object["filler_policy"].toObject();
    filler.remove("labeler");
    filler.remove("micro_repeat");
    QJsonObject hesitations = filler["hesitations"].toObject();
    hesitations.remove("thresholds");
    filler["hesitations"] = hesitations;
    object["filler_policy"] = filler;

    const auto profile = decodeObject(object);
    EXPECT_FALSE(profile.styleNotes);
    EXPECT_FALSE(profile.fillerPolicy.labeler);
    EXPECT_FALSE(profile.fillerPolicy.microRepeat);
    EXPECT_FALSE(profile.fillerPolicy.hesitations.thresholds);
    EXPECT_FALSE(StageCoder::encode(profile).contains("style_notes"));
}

TEST(ProfileDocument, RequiredPartsAndKnownTextsOnly)
{
    QJsonObject noHesitations = documentObject();
    QJsonObject filler = noHesitations["filler_policy"].toObject();
    filler.remove("hesitations");
    noHesitations["filler_policy"] = filler;
    EXPECT_THROW(decodeObject(noHesitations), json::DecodingError);

    QJsonObject badMode = documentObject();
    filler = badMode["filler_policy"].toObject();
    QJsonObject micro = filler["micro_repeat"].toObject();
    micro["mode"] = "cut_some";
    filler["micro_repeat"] = micro;
    badMode["filler_policy"] = filler;
    try {
        decodeObject(badMode);
        FAIL() << "an unknown policy mode was accepted";
    } catch (const json::DecodingError &e) {
        EXPECT_EQ(e.path(), "filler_policy.micro_repeat.mode");
    }

    QJsonObject camelKeys = documentObject();
    camelKeys["schemaVersion"] = camelKeys.take("schema_version");
    EXPECT_THROW(decodeObject(camelKeys), json::DecodingError);

    QJsonObject badSource = documentObject();
    QJsonObject params = badSource["params"].toObject();
    QJsonObject param = params["pause_p50_ms"].toObject();
    param["tolerance_source"] = "guessed";
    params["pause_p50_ms"] = param;
    badSource["params"] = params;
    EXPECT_THROW(decodeObject(badSource), json::DecodingError);
}

} // namespace
