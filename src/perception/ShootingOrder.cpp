#include "perception/ShootingOrder.h"

#include "tools/FFmpegRunner.h"

#include <unicode/ucol.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>

namespace velum::ProcessPipeline {

namespace {

// One collator of the root locale for the whole process, made on first use:
// numbers in names compare by value, and case does not count (secondary
// strength keeps accents). A collator is not to be used from two threads at
// once, hence the lock.
struct NameCollator {
    std::mutex mutex;
    UCollator *collator = nullptr;

    NameCollator()
    {
        UErrorCode status = U_ZERO_ERROR;
        collator = ucol_open("", &status);
        if (U_FAILURE(status)) {
            collator = nullptr;
            return;
        }
        ucol_setAttribute(collator, UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
        ucol_setAttribute(collator, UCOL_STRENGTH, UCOL_SECONDARY, &status);
    }
    ~NameCollator()
    {
        if (collator)
            ucol_close(collator);
    }
};

NameCollator &nameCollator()
{
    static NameCollator shared;
    return shared;
}

} // namespace

int naturalCompare(QStringView a, QStringView b)
{
    NameCollator &shared = nameCollator();
    if (!shared.collator) // ICU without its data: plain case-insensitive order
        return a.compare(b, Qt::CaseInsensitive);
    const std::lock_guard lock(shared.mutex);
    static_assert(sizeof(UChar) == sizeof(QChar));
    return int(ucol_strcoll(shared.collator, reinterpret_cast<const UChar *>(a.utf16()), int32_t(a.size()),
                            reinterpret_cast<const UChar *>(b.utf16()), int32_t(b.size())));
}

QCoro::Task<std::vector<C05Sync::Clip>> assignShootingOrder(std::vector<C05Sync::Clip> clips, C0Probe probe,
                                                             ProcessRunner runner, Cancellation cancellation)
{
    // Creation times of the unsynced clips, probed one after another. A
    // synced clip's offset is the better evidence, so it is not probed.
    std::map<QString, QDateTime> dates;
    for (const auto &probed : probe.clips) {
        const auto row = std::find_if(clips.begin(), clips.end(),
                                      [&](const C05Sync::Clip &c) { return c.clipId == probed.clipId; });
        if (row == clips.end() || row->offsetS || dates.contains(probed.clipId))
            continue;
        try {
            auto probing = FFmpegRunner::probe(QUrl::fromLocalFile(probed.path), runner, cancellation);
            const FFmpegRunner::Probe facts = co_await std::move(probing);
            if (facts.creationTime)
                dates.emplace(probed.clipId, *facts.creationTime);
        } catch (const CancelledError &) {
            throw;
        } catch (const std::exception &) {
            // no date for this clip
        }
    }

    const auto dateOf = [&](const C05Sync::Clip &clip) -> std::optional<QDateTime> {
        const auto found = dates.find(clip.clipId);
        return found == dates.end() ? std::nullopt : std::optional(found->second);
    };
    // Not a strict order when some unsynced clips have dates and some have
    // not; the stable sort then keeps the outcome tied to the input order.
    std::stable_sort(clips.begin(), clips.end(), [&](const C05Sync::Clip &a, const C05Sync::Clip &b) {
        if (a.offsetS && b.offsetS)
            return *a.offsetS < *b.offsetS;
        if (a.offsetS || b.offsetS)
            return bool(a.offsetS);
        const auto dateA = dateOf(a);
        const auto dateB = dateOf(b);
        if (dateA && dateB)
            return *dateA < *dateB;
        return naturalCompare(a.filename, b.filename) < 0;
    });

    for (std::size_t i = 0; i < clips.size(); ++i) {
        C05Sync::Clip &clip = clips[i];
        clip.shootingIndex = int(i);
        if (!clip.offsetS)
            clip.syncSource = dates.contains(clip.clipId) ? C05Sync::SyncSource::creationTime
                                                           : C05Sync::SyncSource::filename;
    }
    co_return clips;
}

} // namespace velum::ProcessPipeline
