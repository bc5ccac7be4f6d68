// velum-cli state FILE
//
// Reads a state file as the application does at sign-in, repairs included (a
// project left processing is a draft again, files gone from disk are failed,
// style videos under analysis are queued again), and prints the result as the
// state coder writes it. An unreadable or missing file prints the fresh state
// the application would start from; that is not an error.

#include "Command.h"

#include "model/StateStore.h"

#include <cstdio>

namespace velum::cli {
namespace {

int runState(const QStringList &arguments)
{
    QString file;
    for (const QString &a : arguments) {
        if (a.startsWith(QLatin1Char('-')) && a.size() > 1)
            return usageError(QStringLiteral("unknown option \"%1\"").arg(a));
        if (!file.isEmpty())
            return usageError(QStringLiteral("unexpected argument \"%1\"").arg(a));
        file = a;
    }
    if (file.isEmpty())
        return usageError(QStringLiteral("usage: velum-cli state FILE"));

    try {
        const PersistedState state = StateStore::load(file);
        const QByteArray text = StateCoder::encode(state) + '\n';
        std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
        std::fflush(stdout);
    } catch (const std::exception &e) {
        // Only encoding can fail here: a stored value that cannot be written.
        std::fprintf(stderr, "velum-cli: %s\n", e.what());
        return exitFailure;
    }
    return exitOk;
}

const CommandRegistration registration{Command{
    "state", "FILE",
    "load a state file as the application does, repairs included, and print it as JSON (an unreadable file "
    "prints the fresh state)",
    runState}};

} // namespace
} // namespace velum::cli
