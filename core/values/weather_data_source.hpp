#pragma once
// Which service a forecast comes from, or should come from.
//
// The numbering is stored (settings, fetch records): 0 dynamic, 1 apple, 2 foreca, 3 ow. Never
// reorder. `dynamic` means "pick per place"; as the source of a record it means unknown.

namespace ombrine {

enum class WeatherDataSource { dynamic = 0, apple = 1, foreca = 2, ow = 3 };

}  // namespace ombrine
