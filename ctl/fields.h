#pragma once

#include <json/json.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "crond/cronjob.h"

namespace VUKO::VUKOCrond::Ctl {

/// The fields of a schedule, in the order in which a text has them.
enum Field : std::size_t { MINUTE, HOUR, DAY, MONTH, WEEKDAY, FIELD_COUNT };

/// A piece of a text and where it begins there.
struct Piece {
    std::string strText;
    std::size_t uFrom = 0;
};

/// The pieces between any of the separators; empty ones do not count, here as in the library.
std::vector<Piece> PiecesOf(const Piece& text, const char* szSeparators);

/// A definition that is good as far as its five fields are.
Json::Value DefinitionOfCrontab(const std::string& strCrontab);

/// What the items of each field allow, as the library reads them.
using FieldRanges = std::array<std::vector<CronJob::Range>, FIELD_COUNT>;

/// Kinds of a CronJob::Range.
enum RangeKind { VALUE = 0, RANDOM = 1, ANY = 2 };

/// Whether one of the items, or of the fields' items, is drawn.
bool IsRandom(const std::vector<CronJob::Range>& vecRanges);
bool IsRandom(const FieldRanges& ranges);

/// @return nothing for a text that is refused.
std::optional<FieldRanges> RangesOf(const std::string& strCrontab);

} // namespace VUKO::VUKOCrond::Ctl
