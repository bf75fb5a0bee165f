// Files as the command-line host and the file components need them: what a
// name is, whether two names reach the same file, and writing a file through
// a temporary one beside it that replaces the target only when all went well.
#pragma once

#include <string>

namespace Quorvel::Platform {

enum class TPathKind { pkMissing, pkFile, pkDirectory, pkOther };

// [any thread] What Path names, links followed.
TPathKind GetPathKind(const std::string& Path);
// [any thread] Whether both names reach the same existing file (links, other
// spellings and hard links included); false when either does not exist.
bool IsSameFile(const std::string& A, const std::string& B);
// [any thread] The file a write to Path lands in: a symbolic link is followed
// to its target, so that replacing the result keeps the link.
std::string ResolveWriteTarget(const std::string& Path);
// [any thread] Creates a new, empty file in Target's folder with a name of its
// own and answers that name; "" with the reason in ErrorText on failure.
std::string CreateTemporaryFileBeside(const std::string& Target, std::string& ErrorText);
// [any thread] Puts Source in Target's place in one step (replacing an
// existing Target); false with the reason in ErrorText.
bool PutFileInPlace(const std::string& Source, const std::string& Target, std::string& ErrorText);
// [any thread] Deletes a file; false when it could not be deleted.
bool RemoveFile(const std::string& Path);

// [main thread] While set, the file is deleted when the program is
// interrupted (Ctrl+C, a termination request) before it is forgotten. One
// file at a time.
void RemoveOnInterrupt(const std::string& Path);
void ForgetOnInterrupt();

}  // namespace Quorvel::Platform
