#pragma once

#include <json/json.h>

#include <functional>
#include <string>

#include "tests/support/temp_dir.h"

namespace store {

/// One way to write a job's file, to be struck at every system call. The file lies in a folder of its own.
struct Writing {
    /// Writes the document; run in a child. Tells what the library told.
    std::function<bool(const Json::Value& jsNew)> write;
    /// What a reader gets; run in the test itself.
    std::function<bool(Json::Value& jsRead)> read;
    std::string strFile;
    std::string strSaveError; ///< the message of a write that failed, up to its reason; empty where there is none
};

/// Kills the writer at each stop of the writing in turn, and expects that the file is then wholly the old or wholly the
/// new one, with the owner and mode of the old, that a reader can read it, and that nothing is left beside it but
/// hidden files that no reader of *.conf takes for a definition. Expects that both outcomes happened.
///
/// @param bReplace  there is an old file; else the writing makes the first one.
void ExpectWholeWhereverItIsKilled(const Writing& writing, bool bReplace);

/// Lets each system call of the writing that has to do with files fail in turn, and expects that the writing then
/// fails with its message and leaves the old file, or succeeds, and leaves nothing beside the file. Expects that both
/// outcomes happened. A failure behind the rename is told as one, too, though the new file stands.
void ExpectWholeWhateverFails(const Writing& writing, int iErrno);

/// Expects the order that makes a loss of power harmless: the new file's content is synced before it gets its name, and
/// where the writing is to be durable, the folder is synced after that.
void ExpectSyncedInOrder(const Writing& writing, bool bDurable);

} // namespace store
