// The program's commands, a file each.
#pragma once

#include "commandline.h"
#include "output.h"

namespace updater {

// Each tells `output` its result and its complaints, and throws Failure where it cannot go on.
void showStatus(const Options& options, Output& output);
void synchroniseStore(const Options& options, Output& output);
void watchToken(const Options& options, Output& output);
void listRegistered(const Options& options, Output& output);
void cleanStore(const Options& options, Output& output);
void listCsps(const Options& options, Output& output);
void verifyFiles(const Options& options, Output& output);
void grantAccess(const Options& options, Output& output);

} // namespace updater
