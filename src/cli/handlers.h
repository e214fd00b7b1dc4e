// SPDX-License-Identifier: Apache-2.0
// What the rows of the command table do. Each handler is one command.

#ifndef CLI_HANDLERS_H
#define CLI_HANDLERS_H

namespace cli {

struct Call;

// handlers_config.cpp
void Set(Call& call);
void Delete(Call& call);
void LoadMerge(Call& call);
void LoadReplace(Call& call);
void ShowConfiguration(Call& call);
void Compare(Call& call);

// handlers_system.cpp
void Validate(Call& call);
void Commit(Call& call);
void Discard(Call& call);
void ShowSflow(Call& call);
void ShowProcesses(Call& call);
void ShowFaults(Call& call);
void ShowVersion(Call& call);
void RequestHa(Call& call);
void RequestResync(Call& call);
void RequestBackup(Call& call);
void ShowHelp(Call& call);
void Exit(Call& call);

}  // namespace cli

#endif
