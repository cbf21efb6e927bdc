#pragma once

/// @file
/// Paths as they cross the library's interface, and every file-system operation of the library.

#include <TarnoMirelo/export.h>
#include <TarnoMirelo/status.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo {

/// A path as text: kept verbatim, neither checked nor normalised. Its one separator, on every system, is the backslash;
/// `FileUtils` turns it into the system's own when it opens a file. A slash is an ordinary character here.
///
/// A plain value. One path may be read from several threads at once as long as none changes it.
class MIRELO_API Filepath {
 public:
    /// One backslash. Usable before any other static object is initialised.
    static const std::string Separator;

    /// The empty path.
    Filepath();
    /// A path of that text.
    /// @param path  UTF-8 for most operations, see `FileUtils`; copied as it is
    explicit Filepath(const std::string& path);

    /// Adds `Separator` and the other path's text up to its first NUL. Nothing is collapsed: "a\" and "b" make "a\\b",
    /// "a" and "" make "a\". Only the empty path takes no separator.
    Filepath& append(const Filepath& other);
    /// The text before the last separator; the whole path when there is none.
    Filepath parent_path() const;
    /// A copy of the text.
    std::string getPathString() const;
    /// The text, NUL-terminated; valid until the path is changed or destroyed, never null.
    const char* c_str() const;

 private:
    std::string path_;
};

/// The library's file system. Every operation but `extractTarballOfSize` is virtual: a host or a test that derives from
/// it puts another one in its place, also for the operations that are built on others.
///
/// Paths are read up to their first NUL. Operations marked *wide* take them as UTF-8 and raise `std::range_error`
/// "bad conversion" for any other text. Those marked *narrow* pass them on as they are: on Windows in the process's
/// code page, elsewhere unchecked.
///
/// What is no regular file cannot be opened: for reading, a directory, a pipe, a socket or a device; for writing, a
/// directory, a pipe or a socket. Opening never waits for another process. Files are closed to child processes, save
/// for those opened for writing where the C++ library is not GNU's: the others have no way to say so.
///
/// There is no state: calls may overlap, and are then as safe as the system's own on those files.
class MIRELO_API FileUtils {
 public:
    FileUtils();
    /// @{

    /// Copies nothing: there is no state.
    FileUtils(const FileUtils&) = default;
    FileUtils& operator=(const FileUtils&) = default;
    /// @}

    /// Creates one directory, unless `pathExists` reports the path already (then wide, else narrow).
    /// Raises `FileException` "Path incorrect : " and the path when the parent is missing. Any other failure is silent.
    virtual void createDir(const Filepath& path);
    /// Whether a file or a directory is there. Only "not found" means no: what can't be looked at counts as present.
    /// Wide.
    virtual bool pathExists(const Filepath& path);
    /// Opens a file to append binary data, creating it if absent. The caller tests whether the stream is open. Wide.
    virtual std::ofstream openFileToStreamBinaryData(const Filepath& path);
    /// Writes `size` bytes from `data` to a stream opened here.
    /// @return whether the stream is open and still good
    virtual bool streamBinaryDataToFile(void* data, uint64_t size, std::ofstream& stream);
    /// Opens a file to write binary data, created or emptied. The caller tests whether the stream is open. Wide.
    virtual std::ofstream openFileToWriteBinaryData(const Filepath& path);
    /// Writes `size` bytes from `data` into a file opened with `openFileToWriteBinaryData`.
    /// @return true; failures are not reported
    virtual bool writeBinaryDataToFile(void* data, uint64_t size, const Filepath& path);
    /// Writes a text up to its first NUL into a file, created or emptied; each line feed becomes a carriage return and
    /// a line feed, on every system. Wide.
    /// @return true; failures are not reported
    virtual bool writeStringToFile(const std::string& text, const Filepath& path);
    /// The whole file, as long as it was when it was opened. Wide.
    /// @param size  out: bytes in the buffer; unchanged when the file cannot be opened
    /// @return null when the file cannot be opened. Bytes that could not be read are zero.
    virtual std::unique_ptr<char[]> readBinaryFileToBuffer(const Filepath& path, uint64_t& size);
    /// The whole file, as long as it was when it was opened; empty when it cannot be opened. Bytes that could not be
    /// read are zero. Wide.
    virtual std::vector<char> readBinaryFileToVector(const Filepath& path);
    /// The whole file, read until nothing more comes; empty when it cannot be opened. Wide.
    virtual std::vector<unsigned char> readBinaryFileToByteVector(const Filepath& path);
    /// The file's size in bytes. Raises `FileException` "File error!" when it cannot be opened. Wide.
    virtual uint64_t getFileSize(const Filepath& path);
    /// The whole file into memory of the caller; a short read is not reported.
    ///
    /// The call is not told how long the memory is. A file that has grown since `getFileSize` is written beyond its
    /// end: for a file that others may write to, use `readBinaryFileToBuffer`.
    /// @param size    out: the file's size in bytes, now
    /// @param buffer  at least as many bytes
    /// Raises `FileException` "File error!" when the file cannot be opened; `size` is then unchanged. Wide.
    virtual void readBinaryFileToAllocated(const Filepath& path, uint64_t& size, char* buffer);
    /// Does nothing: the directory stays.
    virtual void deleteDir(const Filepath& path);
    /// Deletes a file. Raises `FileException` "Could not delete file : " and the path when it can't. Narrow.
    virtual void deleteFile(const Filepath& path);
    /// Unpacks a tar archive held in memory, in the POSIX ustar layout, through `pathExists`, `createDir` and
    /// `writeBinaryDataToFile` of this object: what they don't report, this doesn't either. Never raises.
    ///
    /// Extended headers are skipped, so long and non-ASCII names come cut: `extractTarballOfSize` honours them. A
    /// directory whose path contains white space is not created. On Windows, below a destination of the form `\\?\...`,
    /// names are given to those operations with backslashes, and without "." components.
    ///
    /// @param archive      first byte of the archive, which must have an end block: a block whose first byte is zero.
    ///                     Nothing else stops the reading. Borrowed, and not changed.
    /// @param destination  in: the directory to unpack into; out, on success only: the path of the archive's first
    ///                     directory, or the empty path when it lists none
    /// @return `SUCCESS`, or
    ///   - `TAR_CHECKSUM_ERROR`: a header does not add up
    ///   - `TAR_EXTRACTION_ERROR`: an entry is neither file nor directory, has no name or no size below 4 GiB,
    ///     or would land outside `destination` (a ".." component, an absolute name, a ":"; on Windows also any name
    ///     where the destination is a lone slash, since the two would start a UNC path); or `writeBinaryDataToFile`
    ///     failed
    ///   - `FILE_ERROR`: the parent of a directory is missing; the description names the path
    ///   - the status of any other exception
    /// Entries written before a failure stay on disk.
    virtual MireloStatus extractTarball(unsigned char* archive, Filepath& destination);
    virtual ~FileUtils();
    /// The whole file up to its first NUL byte. Raises `std::runtime_error` "Failed to open file". Narrow.
    virtual std::string readBinaryFileToString(const Filepath& path);
    /// The names in a directory that match a pattern, in the system's order. `*` stands for any run of characters and
    /// `?` for one; letter case does not count. Nothing is filtered, "." and ".." included. On Windows the system's
    /// own habits come on top: `*.*`, for one, matches names without a dot. Wide.
    /// @return bare names, not joined to the directory; empty when nothing matches or the directory can't be read
    virtual std::vector<Filepath> findFilesByPattern(Filepath directory, std::string pattern);

    /// Unpacks a tar archive of known length, from anywhere, in the ustar layout with its pax and GNU extensions:
    /// docs/archives.md tells what each packer needs. Never raises, reads nothing beyond the length, and takes an
    /// archive whole or refuses it. It works on the system's files: overrides are not consulted.
    ///
    /// Missing parents are created, and files that are there are overwritten. No link below the destination is
    /// followed, even if it is put there meanwhile, and neither a special file nor a file with several names (hard
    /// links) is written to.
    ///
    /// @param archive      first byte of the archive; borrowed for the call and read in place
    /// @param size         length of `archive` in bytes
    /// @param destination  in: the directory to unpack into, as UTF-8, which must be there if the archive has entries;
    ///                     out, on success only: the path of the archive's first directory entry, or the empty path
    ///                     when it lists none
    /// @return `SUCCESS`, or with a description that names the entry, or the place, and the reason
    ///   - `TAR_CHECKSUM_ERROR`: a header does not add up
    ///   - `TAR_EXTRACTION_ERROR`: an entry is a link, a sparse file, a part of a file, a directory with data, or of
    ///     another kind than file and directory; has a size that is not given in octal digits, or of 4 GiB and more;
    ///     has a name that is empty, absolute, not UTF-8, has a ".." component, a ":" or a NUL, or, on Windows, the
    ///     name of a device, a dot or space at the end of a component, or other letters than what is there under that
    ///     name; is cut off; meets something in its place; or could not be written whole. Or an extended header is
    ///     malformed or has no entry behind it, there is no end block (512 zero bytes) within the length, or the
    ///     destination is no directory or holds a NUL
    ///   - the status of any other exception: no memory, or a destination that is not UTF-8
    /// Entries written before a failure stay on disk.
    MireloStatus extractTarballOfSize(const unsigned char* archive, uint64_t size, Filepath& destination);
};

}  // namespace TarnoMirelo
