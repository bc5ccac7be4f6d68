#pragma once

// Every signed-in account keeps its data in a store root of its own under the
// application's folder (the base, AppPaths::base()):
//
//   base/accounts/<safe name of the account's subject>   one account
//   base/accounts/_none                                  nobody signed in, and
//                                                        parked old data
//   base/.migrated                                       old data dealt with
//
// Data written before accounts had folders of their own sits at the top of
// the base under one of `legacyNames`. The first account to sign in on a
// machine inherits it (`adopt`); with nobody signed in it is parked under
// "_none" so that it is neither shown nor lost (`parkLegacy`).
//
// The active partition may be read from any thread: it is kept behind a lock
// and copied out. Log lines go to standard error as "velum: <text>" for
// information and "velum: error: <text>" for errors.

#include <QString>
#include <QStringView>
#include <QUrl>

#include <array>
#include <optional>

namespace velum::AccountPartition {

// The five names old data can have at the top level of the base, in the
// order they are dealt with.
inline constexpr std::array<const char *, 5> legacyNames{"state.json", "profiles", "projects", "analysis", "profile"};

// The partition in use, if any (a folder URL).
std::optional<QUrl> active();

// The folder of the account in use, or base/accounts/_none while none is.
QUrl storeRoot();

// base/accounts/safeName(sub). Touches nothing on disk.
QUrl root(const QString &sub, const QUrl &base);

// Makes an account's partition current: adopts old data if this is the
// first account on the machine, then sets `active`.
void activate(const QString &sub);

// Clears `active`: nobody is signed in any more.
void deactivate();

// Every character that is neither a letter nor a number (in any script) nor
// "-" becomes "_"; an empty result is "_".
QString safeName(QStringView text);

// The first account on a machine inherits what was there before: the parked
// folder and any old data at the top level of the base. Runs once per
// machine, guarded by base/.migrated.
void adopt(const QUrl &root, const QUrl &base);

// With nobody signed in, moves old data from the top level of the base into
// base/accounts/_none.
void parkLegacy(const QUrl &base);

} // namespace velum::AccountPartition
