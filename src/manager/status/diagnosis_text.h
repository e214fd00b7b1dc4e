// SPDX-License-Identifier: Apache-2.0
// The sentences of the diagnosis: what is wrong and the remedy, in the words of the operator's shell. Used by
// diagnosis.cpp; decides nothing but which kind of error a collector has.

#ifndef MANAGER_STATUS_DIAGNOSIS_TEXT_H
#define MANAGER_STATUS_DIAGNOSIS_TEXT_H

#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "manager/status/problem.h"
#include "manager/status/view.h"

namespace manager::text {

std::string NoAgentAddress();

std::string Disabled(const std::vector<std::string>& collectors);
std::string Unknown(const std::string& collector);
std::string NotLoaded(Service::Session session);
std::string NoInterface(const std::string& collector);
std::string NothingSent();

/// Which of a collector's reasons the error of its socket is.
Reason ReasonOf(const std::error_code& error);
std::string OfError(Reason reason, const View::Collector& collector);

std::string Missing(const std::string& interface);
std::string Down(const InterfaceStatus& status);
std::string NoCollector(const std::string& interface);
std::string NoFlowCollector(const std::string& interface);
std::string NoPermission(const std::string& reason);
std::string NoKernelSupport(const std::string& reason);
std::string SourceError(const InterfaceStatus& status);
std::string NoTraffic(const View::Interface& interface, std::optional<Direction> added);
std::string BufferFull(const InterfaceStatus& status);
std::string Pending(const InterfaceStatus& status);
std::string NoSampleYet(const View::Interface& interface);
std::string SamplingOff(const std::string& interface);
std::string PollingOff(const std::string& interface);

}  // namespace manager::text

#endif
