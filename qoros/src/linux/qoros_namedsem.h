// System V semaphores that processes find by a key, one for each named mutex and event, and the
// table in the shared control block that counts the handles on them. Functions of this layer alone
// bear public-looking names here, since the messages show these. The kind letter, 'M' for a mutex
// or 'E' for an event, goes into the messages and decides about release.
#pragma once

#include <cstdint>

constexpr char cMutexKind = 'M';
constexpr char cEventKind = 'E';

// Creates the semaphore of a key, or opens the one that exists as it is; key 0 makes one that
// nobody finds. The first handle of the process creates its log object. *pdSem changes with success
// only.
bool QorOsCreate(uint32_t* pdSem, uint32_t dKey, uint32_t dValue, char cKind);

// Opens the semaphore of a key other than 0.
bool QorOsOpen(uint32_t* pdSem, uint32_t dKey, char cKind);

// Gives a handle up and with the last one the semaphore; the process's last handle takes the log
// object along.
bool QorOsClose(uint32_t dSem, char cKind);

// Takes the value down by one. True with result 999 says that it was 0 and the time-out, too.
bool QorOsWait(uint32_t dSem, uint32_t dTimeout, char cKind, uint32_t* pdResult);

// Takes the value up by one; that of a mutex only from 0.
bool QorOsRelease(uint32_t dSem, char cKind);

// Sets the value; false with the cause in errno.
bool fSetSemaphore(uint32_t dSem, uint32_t dValue);

// The counts (qoros_semcount.cpp), in the order in which a handle comes and goes.

// Makes sure of the process's log object and of the shared block; false when there is none to have.
bool fAttachLog();

// Empties the table if no handle exists in any process.
void vInitUnusedTable();

// Counts a new handle, a named one in the table too, and tells of it under the name of the function
// that it comes from.
void vCountHandle(const char* cpszName, uint32_t dSem, bool fNamed, char cKind);

// Counts a handle in the table; false when there is no block or the table is full.
bool fIncNamedSemCnt(uint32_t dSem);

// Logs the counters before a handle goes.
void vTellOfClose(uint32_t dSem, char cKind);

// Takes a handle out of the table; true when others remain on the semaphore.
bool dDecNamedSemCnt(uint32_t dSem);

// Takes a handle out of all other counters. The last one of the process takes the log object along.
void vUncountHandle();
