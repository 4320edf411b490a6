#pragma once

#include <string>

#include "service/state/sqlite.h"

namespace VUKO::VUKOCrond::Service {

/// Makes the tables in an empty database, with nothing in them but the rows that always are.
void MakeTables(Connection& connection);

/// Why a database is no state of this service: of another program, or of a version that this one does not know.
///
/// @return the reason, fit for a log line; empty when there is none.
/// @throws SqliteError; IsDamage() then tells whether it is a reason, too.
std::string WhyNotOurs(const Connection& connection);

/// Looks at every page. @return and @throws as above.
std::string WhyDamaged(const Connection& connection);

/// Makes the whole content of one database that of another, which must not be within a transaction.
void CopyDatabase(const Connection& source, Connection& target);

} // namespace VUKO::VUKOCrond::Service
