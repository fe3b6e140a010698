// The verbs of the program, one file verb_NAME.cpp each. To add one: write its file, name it here, in
// CMakeLists.txt and in main.cpp.
#pragma once

#include "linux/cli/program.h"

namespace vorlinden::cli {

void addConfig(Program& program);
void addConflicts(Program& program);
void addEvents(Program& program);
void addItem(Program& program);
void addItemJournal(Program& program, CLI::App& item);  // below `item`
void addLogin(Program& program);
void addLogout(Program& program);
void addMount(Program& program);
void addOpenURL(Program& program);
void addRetry(Program& program);
void addServer(Program& program);
void addServerCtl(Program& program);
void addStatus(Program& program);
void addSync(Program& program);

}  // namespace vorlinden::cli
