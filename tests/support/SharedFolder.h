#pragma once

// Generated files that every test process shares. Each test runs in a
// process of its own, so media are made once, by whichever process gets
// there first, in a folder of its own that is then renamed into place under
// the system's temporary folder; a marker file says the folder is complete.

#include <gtest/gtest.h>

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace velum::test {

// The complete folder `name` under the system's temporary folder, made by
// `make` (which fills the folder it is given, or returns false with `error`
// set) when no process has made it yet. Give `name` a version and change it
// whenever a recipe changes. No folder, with `error` set, when making fails.
std::optional<QString> sharedFolder(const QString &name,
                                    const std::function<bool(const QString &folder, QString &error)> &make,
                                    QString &error);

// A set of samples whose files are made once in the shared folder `name`:
// `assign` names a set's files in a folder, `make` makes them there. When
// making fails, the test fails, naming `what`, and the set is empty.
template <class Samples>
const Samples &sharedSamples(const QString &name, const char *what, void (*assign)(Samples &, const QString &),
                             bool (*make)(const Samples &, const QString &, QString &))
{
    static QString error;
    static const std::optional<Samples> made = [&]() -> std::optional<Samples> {
        const auto samplesIn = [&](const QString &folder) {
            Samples samples;
            assign(samples, folder);
            return samples;
        };
        const auto folder = sharedFolder(
            name, [&](const QString &folder, QString &error) { return make(samplesIn(folder), folder, error); }, error);
        return folder ? std::optional(samplesIn(*folder)) : std::nullopt;
    }();
    if (!made)
        ADD_FAILURE() << "could not make " << what << ": " << error.toStdString();
    static const Samples none;
    return made ? *made : none;
}

// Runs an installed program to its end (two minutes at most); false with
// `error` set when it is missing or fails.
bool runTool(const QString &name, const QStringList &arguments, QString &error);

// ffmpeg, quiet, never asking, overwriting.
bool ffmpeg(const QStringList &arguments, QString &error);

} // namespace velum::test
