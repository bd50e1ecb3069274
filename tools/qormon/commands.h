// The tool's commands. Each gets the words behind its name and gives the exit code.
#pragma once

#include <string>
#include <vector>

namespace qormon {

constexpr int exitSuccess = 0;
constexpr int exitNegative = 1; // the answer is no: nothing found, nothing reached
constexpr int exitUsage = 2;

using Words = std::vector<std::string>;

int commandConfig(const Words& words);
int commandDemo(const Words& words);
int commandGet(const Words& words);
int commandIp(const Words& words);
int commandIpc(const Words& words);
int commandLog(const Words& words);
int commandMif(const Words& words);
int commandUpdate(const Words& words);

} // namespace qormon
