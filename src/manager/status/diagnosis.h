// SPDX-License-Identifier: Apache-2.0
// Why are there no samples? Compares what is configured, what is in effect and what has happened: each
// interface and collector of which nothing is sent, with the reason and the remedy. Pure functions.

#ifndef MANAGER_STATUS_DIAGNOSIS_H
#define MANAGER_STATUS_DIAGNOSIS_H

#include <string>
#include <vector>

#include "manager/status/problem.h"
#include "manager/status/view.h"

namespace manager {

struct Configured;

/// The problems of the manager as a whole.
std::vector<Problem> DiagnoseAgent(const View& view);

// `inEffect` is null if the table has no such entry. `configured` needs no more than the entry and what it
// names; it may be null: then the problems that only it shows are missing. The problems are in ascending
// order of their reasons' names.

std::vector<Problem> DiagnoseCollector(const std::string& name, const View::Collector* inEffect,
                                       const View& view, const Configured* configured);

/// At most one that concerns packet samples, one of counters if they are not sent for another reason, and one
/// of what is configured and was not told.
std::vector<Problem> DiagnoseInterface(const std::string& name, const View::Interface* inEffect,
                                       const View& view, const Configured* configured);

}  // namespace manager

#endif
