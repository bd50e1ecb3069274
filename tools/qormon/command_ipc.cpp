#include "arguments.h"
#include "commands.h"
#include "control_block.h"
#include "rows.h"
#include "usage.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace qormon {

namespace {

constexpr char usageText[] =
    "usage: qormon ipc [--json]\n"
    "       qormon ipc clean [--yes]\n"
    "\n"
    "Shows the control block that all processes of the product share: its users, its counters, "
    "and\n"
    "the semaphores of named mutexes and events. A semaphore is live, gone (removed while handles\n"
    "on it were counted), left over (no process has the block, so that nobody holds a handle),\n"
    "foreign (a set of several, none of the product's) or unreadable.\n"
    "\n"
    "clean says which leftovers it would remove, and with --yes removes them: slots of semaphores\n"
    "that are gone; where nobody has the block, also the semaphores left over and the block.\n"
    "\n"
    "macOS limits all this by kern.sysv.shmmax, shmmni and shmseg (segments) and semmni, semmns.\n";
constexpr Usage usage = {"ipc", usageText};

struct SlotView {
    int index;
    QorOsShmSlot slot;
    const char* state;
    int value; // these three are -1 where the semaphore can't be read
    int waiting;
    int lastProcess;
};

constexpr char stateLive[] = "live";
constexpr char stateGone[] = "gone";
constexpr char stateLeftOver[] = "left over";
constexpr char stateForeign[] = "foreign";
constexpr char stateUnreadable[] = "unreadable";

const char* stateOf(int semaphore, bool inUse) {
    if (semctl(semaphore, 0, GETVAL) == -1) {
        return errno == EINVAL || errno == EIDRM ? stateGone : stateUnreadable;
    }
    if (semctl(semaphore, 1, GETVAL) != -1) {
        return stateForeign; // the product's sets have one semaphore
    }
    return inUse ? stateLive : stateLeftOver;
}

// The slots in use, with what the system says of their semaphores.
std::vector<SlotView> slotsOf(const ControlBlock& block) {
    const bool inUse = block.others() > 0;
    std::vector<SlotView> views;
    // A block in which nothing was ever created is all zeros, which is no semaphore.
    const bool isNew = block.load(&QorOsShmCtl::MaxNamedIdx) == 0;
    for (int i = 0; i < QOR_SHM_SLOTS && !isNew; ++i) {
        const QorOsShmSlot slot = block.slot(i);
        const int semaphore = static_cast<int>(slot.semId);
        if (slot.semId != QOR_SHM_FREE_SLOT) {
            views.push_back({i, slot, stateOf(semaphore, inUse), semctl(semaphore, 0, GETVAL),
                             semctl(semaphore, 0, GETNCNT), semctl(semaphore, 0, GETPID)});
        }
    }
    return views;
}

std::string numberOrDash(int number) {
    return number == -1 ? "-" : std::to_string(number);
}

void printTable(const ControlBlock& block, const std::vector<SlotView>& slots) {
    printRow("segment", std::to_string(block.segment()));
    printRow("attached", std::to_string(block.others()));
    printRow("users", std::to_string(block.load(&QorOsShmCtl::ShmUsers)));
    printHexadecimalRow("log mask", block.load(&QorOsShmCtl::Log));
    printRow("handles", std::to_string(block.load(&QorOsShmCtl::GlobSemCnt)));
    printRow("named handles", std::to_string(block.load(&QorOsShmCtl::NamedSemCnt)));
    printRow("slots so far", std::to_string(block.load(&QorOsShmCtl::MaxNamedIdx)));
    if (!slots.empty()) {
        std::printf("\nslot   semaphore     handles  value  waiting  last pid  state\n");
    }
    for (const SlotView& view : slots) {
        std::printf("%4d  %10u  %10u  %5s  %7s  %8s  %s\n", view.index, view.slot.semId,
                    view.slot.cnt, numberOrDash(view.value).c_str(),
                    numberOrDash(view.waiting).c_str(), numberOrDash(view.lastProcess).c_str(),
                    view.state);
    }
    const uint32_t handles = block.load(&QorOsShmCtl::GlobSemCnt);
    if (block.others() == 0) {
        std::printf("\nNo process has the block attached: %u handles were never closed.\n",
                    handles);
    }
}

void printJson(const ControlBlock& block, const std::vector<SlotView>& slots) {
    std::printf(
        "{\"segment\": %d, \"attached\": %lu, \"users\": %u, \"mask\": %u, \"handles\": %u, "
        "\"namedHandles\": %u, \"slotsSoFar\": %u, \"slots\": [",
        block.segment(), block.others(), block.load(&QorOsShmCtl::ShmUsers),
        block.load(&QorOsShmCtl::Log), block.load(&QorOsShmCtl::GlobSemCnt),
        block.load(&QorOsShmCtl::NamedSemCnt), block.load(&QorOsShmCtl::MaxNamedIdx));
    const char* separator = "";
    for (const SlotView& view : slots) {
        std::printf("%s{\"slot\": %d, \"semaphore\": %u, \"handles\": %u, \"value\": %d, "
                    "\"waiting\": %d, \"lastPid\": %d, \"state\": \"%s\"}",
                    separator, view.index, view.slot.semId, view.slot.cnt, view.value, view.waiting,
                    view.lastProcess, view.state);
        separator = ", ";
    }
    std::printf("]}\n");
}

int show(const Words& words) {
    const Arguments arguments(words, {{"--json", nullptr}}, 0);
    if (!arguments.error().empty()) {
        return usage.refuse(arguments.error());
    }
    const ControlBlock block(ControlBlock::Access::Read);
    if (!block.error().empty()) {
        return tellWhyNot("ipc", block);
    }
    arguments.has("--json") ? printJson(block, slotsOf(block)) : printTable(block, slotsOf(block));
    return exitSuccess;
}

// Says what is done, or would be.
void tell(bool done, const std::string& what) {
    std::printf("%s %s\n", done ? "removing" : "would remove", what.c_str());
}

// Says why a removal failed; true when it did not.
bool succeeded(bool done, const char* what) {
    if (!done) {
        std::fprintf(stderr, "qormon ipc: %s: %s\n", what,
                     std::generic_category().message(errno).c_str());
    }
    return done;
}

bool isLeftover(const SlotView& view) {
    return view.state == stateGone || view.state == stateLeftOver;
}

// Removes what a slot holds if it is a leftover. False where that failed.
bool cleanSlot(ControlBlock& block, const SlotView& view, bool yes) {
    const std::string place = "slot " + std::to_string(view.index);
    const std::string semaphore = "semaphore " + std::to_string(view.slot.semId);
    if (view.state == stateGone) {
        tell(yes, place + ", whose " + semaphore + " is gone");
    } else if (view.state == stateLeftOver) {
        tell(yes, semaphore + ", left over in " + place);
        const int id = static_cast<int>(view.slot.semId);
        if (yes && !succeeded(semctl(id, 0, IPC_RMID) != -1, "a semaphore")) {
            return false;
        }
    } else {
        return true;
    }
    if (yes) {
        block.freeSlot(view.index, view.slot.semId);
    }
    return true;
}

int clean(const Words& words) {
    const Arguments arguments(words, {{"--yes", nullptr}}, 0);
    if (!arguments.error().empty()) {
        return usage.refuse(arguments.error());
    }
    const bool yes = arguments.has("--yes");
    ControlBlock block(ControlBlock::Access::Write);
    if (!block.error().empty()) {
        return tellWhyNot("ipc", block);
    }
    const std::vector<SlotView> slots = slotsOf(block);
    if (block.others() > 0 && std::none_of(slots.begin(), slots.end(), isLeftover)) {
        std::printf("nothing to remove\n");
        return exitSuccess;
    }
    bool cleaned = true;
    for (const SlotView& view : slots) {
        // Somebody may come at any time, and then nothing is left over.
        const bool late = view.state == stateLeftOver && block.others() > 0;
        cleaned = (late || cleanSlot(block, view, yes)) && cleaned;
    }
    if (cleaned && block.others() == 0) {
        tell(yes, "the control block, segment " + std::to_string(block.segment()));
        cleaned = !yes || succeeded(block.remove(), "the control block");
    }
    if (!yes) {
        std::printf("qormon ipc clean --yes does it.\n");
    }
    return cleaned ? exitSuccess : exitNegative;
}

} // namespace

int commandIpc(const Words& words) {
    for (const std::string& word : words) {
        if (word == "--help") {
            return usage.show();
        }
    }
    const bool cleans = !words.empty() && words[0] == "clean";
    return cleans ? clean(Words(words.begin() + 1, words.end())) : show(words);
}

} // namespace qormon
