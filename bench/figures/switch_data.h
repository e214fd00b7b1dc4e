// SPDX-License-Identifier: Apache-2.0
// The configurations that are measured: N interfaces, each with 2 flow and 1 counter collector out of 8.

#ifndef FIGURES_SWITCH_DATA_H
#define FIGURES_SWITCH_DATA_H

#include <cstddef>
#include <string>

namespace figures {

inline constexpr std::size_t kCollectors = 8;

std::string InterfaceName(std::size_t index);
std::string CollectorName(std::size_t index);

/// How many of `count` interfaces list the collector, in either of their lists.
std::size_t UsersOf(std::size_t collector, std::size_t count);

/// Everything in RFC 7951 JSON, as a file for `cdbd --init`.
std::string SwitchJson(std::size_t interfaces);

/// Everything as the XML elements inside <config>.
std::string SwitchXml(std::size_t interfaces);

/// <config> with this content of the sflow container; `attributes` on the element sflow.
std::string SflowXml(const std::string& content, const std::string& attributes = {});

/// The sflow container replaced by one with the collectors only.
std::string WithoutInterfacesXml();

/// One interface's rate.
std::string RateXml(std::size_t interface, std::size_t rate);

/// The rate of the first `interfaces`.
std::string RatesXml(std::size_t interfaces, std::size_t rate);

/// One collector's `enabled`.
std::string EnabledXml(std::size_t collector, bool enabled);

}  // namespace figures

#endif
