// SPDX-License-Identifier: Apache-2.0
// The figures, one function a group. Each starts the switches that it needs, measures, and adds its
// rows to the table.

#ifndef FIGURES_FIGURES_H
#define FIGURES_FIGURES_H

#include "figures/measure.h"
#include "figures/table.h"

namespace figures {

/// 1: a change of one leaf, from the edit to the journal, on a small and on a large switch.
void MeasureChange(const Settings& settings, Table& table);
/// 2: a large file in one edit and commit.
void MeasureLoad(const Settings& settings, Table& table);
/// 3: the daemon's initial load, and its reads alone.
void MeasureInitialLoad(const Settings& settings, Table& table);
/// 4: get-config of everything.
void MeasureRead(const Settings& settings, Table& table);
/// 5: memory and the store's file, over many commits.
void MeasureMemory(const Settings& settings, Table& table);
/// 6: state of one interface and of all, and what others wait meanwhile.
void MeasureState(const Settings& settings, Table& table);
/// 7: what must not grow with the configuration: reads by key, many readers, comparing nothing, the restart.
void MeasureScale(const Settings& settings, Table& table);
/// 8: the same with a hundred thousand interfaces, their load, and a start behind a full history.
void MeasureLarge(const Settings& settings, Table& table);

/// 9: what a roll-back costs beside the commit that it takes back.
void MeasureHistory(const Settings& settings, Table& table);
/// 10: many sessions that do nothing, and many small requests.
void MeasureSessions(const Settings& settings, Table& table);

}  // namespace figures

#endif
