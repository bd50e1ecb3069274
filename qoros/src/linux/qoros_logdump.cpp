#include "qoros_internal.h"

#include <cstring>

#include <algorithm>

namespace {

constexpr size_t dBytesPerLine = 16;
constexpr size_t dMaxBytes = 64;
constexpr size_t dMaxIntegers = 16;

// The text of a dump, which grows by whole pieces. Two bytes of the buffer stay in reserve for the
// line feed that closes every dump. After the first piece that does not fit no other is taken.
class DumpText {
public:
    DumpText(char* cpBuffer, size_t dBufferSize)
        : cpOut(cpBuffer), dSize(dBufferSize), dUsed(strlen_qor(cpBuffer, dBufferSize)) {}

    bool fAppend(const char* cpszPiece) {
        const size_t dPiece = strlen(cpszPiece);
        fFull = fFull || dUsed + dPiece + 2 > dSize;
        if (!fFull) {
            memcpy(cpOut + dUsed, cpszPiece, dPiece + 1);
            dUsed += dPiece;
        }
        return !fFull;
    }

    void vDropLast() {
        cpOut[--dUsed] = '\0';
    }

private:
    char* cpOut;
    size_t dSize;
    size_t dUsed;
    bool fFull = false;
};

char cShown(unsigned char b) {
    return b < 0x20 || b >= 0x80 ? '.' : static_cast<char>(b);
}

bool fAppendLine(DumpText& text, const unsigned char* pbData, size_t dCount) {
    bool fFits = text.fAppend("         ");
    for (size_t i = 0; fFits && i < dCount; ++i) {
        char szByte[4];
        sprintf_qor(szByte, sizeof szByte, " %02X", static_cast<unsigned int>(pbData[i]));
        fFits = text.fAppend(szByte);
    }
    // Three spaces for every byte that is missing keep the columns aligned, three more part them.
    for (size_t i = dCount; fFits && i <= dBytesPerLine; ++i) {
        fFits = text.fAppend("   ");
    }
    for (size_t i = 0; fFits && i < dCount; ++i) {
        const char szShown[2] = {cShown(pbData[i]), '\0'};
        fFits = text.fAppend(szShown);
    }
    return fFits && text.fAppend("\n");
}

void vAppendHex(DumpText& text, const unsigned char* pbData, size_t dLength) {
    const size_t dShown = std::min(dLength, dMaxBytes);
    for (size_t dDone = 0; dDone < dShown; dDone += dBytesPerLine) {
        if (!fAppendLine(text, pbData + dDone, std::min(dShown - dDone, dBytesPerLine))) {
            return;
        }
    }
}

void vAppendIntegers(DumpText& text, const unsigned char* pbData, size_t dLength) {
    if (!text.fAppend("   ")) {
        return;
    }
    bool fFits = true;
    for (size_t i = 0; fFits && i < std::min(dLength, dMaxIntegers); ++i) {
        int32_t dValue;
        memcpy(&dValue, pbData + i * sizeof dValue, sizeof dValue);
        char szNumber[16];
        sprintf_qor(szNumber, sizeof szNumber, "%d.", dValue);
        fFits = text.fAppend(szNumber);
    }
    text.vDropLast(); // the trailing point; kept: a space where there is no number
}

} // namespace

void vPrepLogData(char* cpOut, size_t dSize, const void* pvData, int32_t dLength, int32_t dMode) {
    sprintf_qor(cpOut, dSize, " len=%5d\n", dLength);
    DumpText text(cpOut, dSize);
    const unsigned char* const pbData = static_cast<const unsigned char*>(pvData);
    const size_t dCount = static_cast<size_t>(std::max(dLength, 0));
    if (dMode == QOR_DUMP_HEX) {
        vAppendHex(text, pbData, dCount);
    } else if (dMode == QOR_DUMP_INTEGERS) {
        vAppendIntegers(text, pbData, dCount);
    }
    strcat_qor(cpOut, dSize, "\n");
}
