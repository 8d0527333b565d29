// The banners the shell prints when it cannot pick a local device by itself,
// as the tests expect them on standard output (blank line before and after).
#pragma once

#include <QString>

namespace SelectionBanners {

const QString Several = QStringLiteral(
    "\n"
    "|---------------------------------------------------------------|\n"
    "| Several Korvex virtual devices are running.                   |\n"
    "| Please, select a device manually with command: devices select |\n"
    "|---------------------------------------------------------------|\n"
    "\n");
const QString None = QStringLiteral(
    "\n"
    "|----------------------------------------------------------------------|\n"
    "| No Korvex virtual device running found                               |\n"
    "| Please, run at least one Korvex virtual device to use this shell     |\n"
    "|----------------------------------------------------------------------|\n"
    "\n");

} // namespace SelectionBanners
