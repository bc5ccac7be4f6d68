#pragma once

// The self-check of every FCPXML file, run on the text as it was written to
// disk, never on the tree that produced it.
//
// `validate` re-parses the text with a general XML parser and runs a fixed
// series of named checks that compare the document with the plan it came
// from and with what an editor needs to import it: references resolve, media
// relinks, times are frame-exact, the storyline holds exactly the kept cut,
// every removed piece rides along disabled above it, and no enabled audio
// reads a removed stretch of a source file. A failed check never stops the
// series; the report says what failed and the caller decides what to do.
//
// The last check validates the text against the editor's own DTD with
// xmllint when both are on the machine. The DTD is not shipped with Velum: it
// is looked for at the file named by VELUM_FCPXML_DTD (when that names an
// existing file), then in the editor's application bundle. Without either,
// the check passes as skipped and the report is not marked DTD-validated.

#include "export/ExportPlan.h"
#include "model/Json.h"

#include <QByteArray>
#include <QDomElement>
#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace velum::FCPXMLValidation {

struct Check {
    QString name;
    bool passed = false;
    std::optional<QString> detail;

    friend bool operator==(const Check &, const Check &) = default;
};

struct Report {
    std::vector<Check> checks; // in the order run
    // True only when the DTD check ran xmllint and it passed.
    bool dtdValidated = false;

    friend bool operator==(const Report &, const Report &) = default;

    // Every check passed. A skipped DTD check counts as passed;
    // `dtdValidated` plays no part.
    bool isValid() const;
};

// The names of the checks, in the order they run.
inline const QString wellFormedName = QStringLiteral("well-formed XML");
inline const QString rootElementName = QStringLiteral("root element");
inline const QString referencesResolveName = QStringLiteral("every ref/format resolves");
inline const QString resourcesReferencedName = QStringLiteral("every resource referenced");
inline const QString referenceKindsName = QStringLiteral("references point at the right resource kind");
inline const QString sequenceFormatName = QStringLiteral("sequence format is a usable <format>");
inline const QString assetsRelinkName = QStringLiteral("every asset relinks to media on disk");
inline const QString mediaDemandName = QStringLiteral("clips only ask assets for media they have");
inline const QString rangesInBoundsName = QStringLiteral("source ranges and anchor offsets in bounds");
inline const QString assetTimecodeName = QStringLiteral("asset start matches the media's timecode");
inline const QString timeFormatName = QStringLiteral("times are rational seconds");
inline const QString frameAlignedName = QStringLiteral("spine times frame-aligned");
inline const QString keptClipsOnlyName = QStringLiteral("spine holds kept clips only");
inline const QString contiguousName = QStringLiteral("spine is contiguous");
inline const QString keptDurationName = QStringLiteral("kept duration matches plan");
inline const QString rideAlongLanesName = QStringLiteral("removed segments ride above the storyline");
inline const QString rideAlongCountName = QStringLiteral("ride-along count matches plan");
inline const QString rideAlongDurationName = QStringLiteral("ride-along duration matches plan");
inline const QString segmentCountName = QStringLiteral("segment count matches plan");
inline const QString sequenceDurationName = QStringLiteral("sequence duration is the kept cut");
inline const QString ghostAudioName = QStringLiteral("no enabled audio reads removed source ranges");
inline const QString dtdName = QStringLiteral("DTD validation (FCPXML v1.13)");

// The detail of a DTD check that did not run xmllint because the DTD or the
// program is not on the machine.
inline const QString dtdUnavailableDetail =
    QStringLiteral("skipped — Final Cut Pro DTD or xmllint unavailable; structural checks only");

// The environment variable that names a DTD file to validate against.
inline constexpr char dtdEnvironmentVariable[] = "VELUM_FCPXML_DTD";

// Runs every check on the text (taken as UTF-8) against the plan it was
// written from. Never throws: a text that does not parse gives the one failed
// check "well-formed XML".
Report validate(const QString &xml, const ExportPlan &plan);
// The same on the file's bytes as they are, UTF-8.
Report validate(const QByteArray &data, const ExportPlan &plan);

// An element and all its descendant elements, parents before children, in
// document order.
std::vector<QDomElement> flatten(const QDomElement &element);

// What a media user asks of its asset.
struct MediaDemand {
    bool video = false;
    bool audio = false;

    friend bool operator==(const MediaDemand &, const MediaDemand &) = default;
};

// `audio` wants audio and `video` video; an `asset-clip` wants what its
// `srcEnable` names, video when all its channel sources are muted, and
// otherwise nothing, for it adapts to what its asset has. No value for an
// element that is not a media user.
std::optional<MediaDemand> mediaDemand(const QDomElement &element);

// True when the element has at least one child `audio-channel-source` and
// every one of them has `enabled`="0" or `active`="0".
bool channelSourcesMuted(const QDomElement &element);

// The editor's DTD of a version ("1.13": FCPXMLv1_13.dtd): the file named by
// VELUM_FCPXML_DTD when it exists, else the one in the editor's application
// bundle when it exists; no value otherwise.
std::optional<QUrl> dtdURL(const QString &version);
// The path in the editor's application bundle, whether or not it exists.
QString bundledDTDPath(const QString &version);

// The groups of checks, each over the flattened root, in the order
// `validate` runs them.
//
// "every ref/format resolves", "every resource referenced", "references
// point at the right resource kind".
std::vector<Check> referenceChecks(const std::vector<QDomElement> &elements);
// "sequence format is a usable <format>", "every asset relinks to media on
// disk", "clips only ask assets for media they have", "source ranges and
// anchor offsets in bounds".
std::vector<Check> semanticChecks(const std::vector<QDomElement> &elements);
// "asset start matches the media's timecode".
Check timecodeCheck(const std::vector<QDomElement> &elements, const ExportPlan &plan);
// "times are rational seconds".
Check timeFormatCheck(const std::vector<QDomElement> &elements);
// "spine times frame-aligned".
std::vector<Check> frameAlignmentChecks(const std::vector<QDomElement> &elements);
// The storyline and its ride-alongs against the plan: checks 11 to 18.
std::vector<Check> layoutChecks(const std::vector<QDomElement> &elements, const ExportPlan &plan);
// "no enabled audio reads removed source ranges".
Check ghostAudioCheck(const std::vector<QDomElement> &elements, const ExportPlan &plan);
// "DTD validation (FCPXML v1.13)": xmllint against the DTD, through a
// temporary file that is removed afterwards. Blocks for the run.
Check dtdCheck(const QString &xml);
Check dtdCheck(const QByteArray &data);

} // namespace velum::FCPXMLValidation

namespace velum::json {

template <>
struct Fields<FCPXMLValidation::Check> {
    static constexpr auto list = std::tuple{
        field("name", &FCPXMLValidation::Check::name),
        field("passed", &FCPXMLValidation::Check::passed),
        field("detail", &FCPXMLValidation::Check::detail),
    };
};

template <>
struct Fields<FCPXMLValidation::Report> {
    static constexpr auto list = std::tuple{
        field("checks", &FCPXMLValidation::Report::checks),
        field("dtdValidated", &FCPXMLValidation::Report::dtdValidated),
    };
};

} // namespace velum::json
