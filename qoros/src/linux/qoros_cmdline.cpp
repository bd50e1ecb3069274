#include "qoros_cmdline.h"

#include <cstdlib>

#include <utility>

#include "qoros_internal.h"

namespace {

enum class State { Program, Between, Plain, Quoted, Escaped };

// Fills a zeroed vector with the pieces of a line, character by character. What fails leaves the
// cause in errno.
class Splitter {
public:
    Splitter(char** ppszOut, const char* cpszLine) : ppszVector(ppszOut), cpPiece(cpszLine) {}

    bool fTake(const char* cp) {
        switch (eState) {
        case State::Program:
            return *cp != ' ' || fEndProgram(cp);
        case State::Between: // Kept: a tab separates nothing.
            if (*cp != ' ') {
                vStartPiece(cp);
            }
            return true;
        case State::Plain:
            return fTakePlain(cp);
        case State::Quoted:
            return fTakeQuoted(cp);
        case State::Escaped:
            eState = State::Quoted;
            return true;
        }
        return false;
    }

    bool fEnd(const char* cpEnd) {
        switch (eState) {
        case State::Program:
            return fEndProgram(cpEnd);
        case State::Plain:
        case State::Quoted:
            return fAppendPiece(cpEnd);
        case State::Between:
        case State::Escaped: // Kept: the quoted piece that ends in a backslash is dropped.
            return true;
        }
        return false;
    }

private:
    // Kept: a blank in front of the program makes its name empty.
    bool fEndProgram(const char* cpEnd) {
        return fAppendPiece(cpEnd) && fNextEntry() && fAppendPiece(cpEnd) && fNextEntry();
    }

    bool fTakePlain(const char* cp) {
        if (*cp == ' ') {
            return fAppendPiece(cp) && fNextEntry();
        }
        if (*cp == '"') {
            const bool fAppended = fAppendPiece(cp);
            vStartPiece(cp);
            return fAppended;
        }
        return true;
    }

    bool fTakeQuoted(const char* cp) {
        if (*cp == '\\') {
            eState = State::Escaped;
        } else if (*cp == '"') {
            const bool fAppended = fAppendPiece(cp);
            // The same argument goes on; where a blank follows, an empty piece is its end.
            cpPiece = cp + 1;
            eState = State::Plain;
            return fAppended;
        }
        return true;
    }

    void vStartPiece(const char* cp) {
        const bool fQuote = *cp == '"';
        cpPiece = fQuote ? cp + 1 : cp;
        eState = fQuote ? State::Quoted : State::Plain;
    }

    bool fAppendPiece(const char* cpEnd) {
        char* const cpszGrown =
            concatenateString(ppszVector[dEntry], cpPiece, static_cast<size_t>(cpEnd - cpPiece),
                              eState == State::Quoted ? 1 : 0);
        if (cpszGrown == nullptr) {
            return false;
        }
        ppszVector[dEntry] = cpszGrown;
        return true;
    }

    // Kept: an argument that a blank ends needs an entry behind it, the last one of a line does
    // not.
    bool fNextEntry() {
        eState = State::Between;
        if (++dEntry == dMaxCommandEntries) {
            errno = E2BIG;
            return false;
        }
        return true;
    }

    char** ppszVector;
    const char* cpPiece; // where the open piece begins
    size_t dEntry = 0;
    State eState = State::Program;
};

} // namespace

void CommandLineDeleter::operator()(char** ppszVector) const {
    for (char** ppsz = ppszVector; *ppsz != nullptr; ++ppsz) {
        vFree(*ppsz);
    }
    vFree(ppszVector);
}

CommandLine parseProcessCommandline(const char* cpszLine) {
    CommandLine vector(static_cast<char**>(calloc(dMaxCommandEntries + 1, sizeof(char*))));
    if (!vector) {
        return vector;
    }
    Splitter splitter(vector.get(), cpszLine);
    const char* cp = cpszLine;
    for (; *cp != '\0'; ++cp) {
        if (!splitter.fTake(cp)) {
            return nullptr;
        }
    }
    return splitter.fEnd(cp) ? std::move(vector) : nullptr;
}
