#include "file_digest.h"
#include "finding_list.h"
#include "manifest_json.h"

#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/package.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <future>
#include <mutex>
#include <optional>
#include <system_error>

namespace TarnoMirelo::Kit {
namespace {

// A component, and what came of looking at its file.
struct Subject {
    FileStatement statement;
    std::optional<PackageMismatch> mismatch;
    bool verified = false;

    void mismatches(const std::string& found, const std::string& wanted) {
        mismatch = PackageMismatch{statement.name, statement.path, found, wanted};
    }
};

bool isFile(const std::string& kind) {
    return kind == ComponentKind::File || kind == ComponentKind::SecuredFile || kind == ComponentKind::SecuredTar;
}

bool isInMemory(const std::string& kind) {
    return kind == ComponentKind::MemoryStream || kind == ComponentKind::SecuredMemoryStream;
}

// The manifest's directory. Either slash separates.
Filepath directoryOf(const Filepath& manifest) {
    const std::string path = manifest.c_str();
    const size_t slash = path.find_last_of("/\\");
    if (slash == std::string::npos) return {};
    return Filepath(slash == 0 ? "/." : path.substr(0, slash));  // a name joined to "/" would begin with two slashes
}

std::string bytesText(uint64_t size) { return std::to_string(size) + " bytes"; }

// What can be said without the file.
void checkStatement(Subject& subject) {
    const FileStatement& statement = subject.statement;
    if (!statement.hasSize && !statement.hasDigest) return;
    const bool isDigest =
        statement.digest.size() == 64 && statement.digest.find_first_not_of("0123456789abcdef") == std::string::npos;
    if (!isFile(statement.kind)) {
        subject.mismatches("kind \"" + statement.kind + "\"", "the kind of a file, since a size or a digest is stated");
    } else if (statement.path.empty() || !staysInside(statement.path)) {
        subject.mismatches("path \"" + statement.path + "\"", "a name below the model's directory");
    } else if (statement.hasSize && !statement.size) {
        subject.mismatches("a \"size\" that is no whole number", "a number of bytes");
    } else if (statement.hasDigest && !isDigest) {
        subject.mismatches("sha256 \"" + excerpt(statement.digest, 64) + "\"", "64 lower-case hexadecimal digits");
    }
}

// The files of a package, looked at by several threads.
class Verification {
 public:
    Verification(const Filepath& manifest, const PackageOptions& options)
        : root_(directoryOf(manifest)), options_(options) {
        for (FileStatement& statement : readStatements(manifest)) {
            subjects_.emplace_back().statement = std::move(statement);
            checkStatement(subjects_.back());
            if (options.progress && isToRead(subjects_.back())) progress_.total += sizeOf(subjects_.back());
        }
    }

    size_t size() const { return subjects_.size(); }

    // Until there is none left, or this or another thread has failed.
    void work() noexcept {
        try {
            for (size_t i = next_++; i < subjects_.size(); i = next_++) {
                if (!subjects_[i].mismatch) checkFile(subjects_[i]);
            }
        } catch (const Stopped&) {  // NOLINT(bugprone-empty-catch): `failure_` says why
        } catch (...) {
            const std::lock_guard<std::mutex> lock(lock_);
            if (failure_ == nullptr) failure_ = std::current_exception();
        }
        next_ = subjects_.size();
    }

    // When all threads have ended. Raises what the first to fail has raised.
    PackageReport report() && {
        if (failure_ != nullptr) std::rethrow_exception(failure_);
        PackageReport report;
        for (Subject& subject : subjects_) {
            const FileStatement& statement = subject.statement;
            if (subject.verified) ++report.verified;
            if (!statement.hasDigest && !isInMemory(statement.kind)) report.unstated.push_back(statement.name);
            if (subject.mismatch) report.mismatches.push_back(std::move(*subject.mismatch));
        }
        return report;
    }

 private:
    struct Stopped {};

    static bool isToRead(const Subject& subject) { return subject.statement.hasDigest && !subject.mismatch; }

    Filepath pathOf(const Subject& subject) const { return Filepath(root_).append(Filepath(subject.statement.path)); }

    uint64_t sizeOf(const Subject& subject) const {
        try {
            return Platform::InputFile(pathOf(subject)).size();
        } catch (const FileException&) {
            return 0;
        }
    }

    void checkFile(Subject& subject) {
        const FileStatement& statement = subject.statement;
        if (!statement.hasSize && !statement.hasDigest) return;
        const std::string wanted =
            statement.hasDigest ? "sha256 " + statement.digest : bytesText(statement.size.value_or(0));
        try {
            Platform::InputFile file(pathOf(subject));
            if (statement.size && *statement.size != file.size()) {
                subject.mismatches(bytesText(file.size()), bytesText(*statement.size));
                return;
            }
            if (!statement.hasDigest) return;
            const std::string digest = digestOf(file, [&](size_t size) { tell(statement.path, size); });
            subject.verified = digest == statement.digest;
            if (!subject.verified) subject.mismatches("sha256 " + digest, wanted);
        } catch (const FileException& exception) {
            subject.mismatches("no file that can be read (" + std::string(exception.what()) + ")", wanted);
        }
    }

    void tell(const std::string& path, size_t bytes) {
        const std::lock_guard<std::mutex> lock(lock_);
        if (failure_ != nullptr) throw Stopped();
        if (!options_.progress) return;
        progress_.path = path;
        progress_.done += bytes;
        try {
            options_.progress(progress_);
        } catch (...) {
            failure_ = std::current_exception();  // before the next thread gets the lock
            throw Stopped();
        }
    }

    const Filepath root_;
    const PackageOptions& options_;
    std::vector<Subject> subjects_;
    std::atomic<size_t> next_{0};
    std::mutex lock_;
    PackageProgress progress_;
    std::exception_ptr failure_;
};

// In the caller's thread and in as many others as are asked for and can be had. All have ended when this returns.
void workInThreads(Verification& verification, size_t threads) {
    std::vector<std::future<void>> others;
    try {
        for (size_t i = 1; i < threads; ++i) {
            others.push_back(std::async(std::launch::async, [&verification] { verification.work(); }));
        }
    } catch (const std::system_error&) {  // NOLINT(bugprone-empty-catch): fewer do the work
    }
    verification.work();
    for (const std::future<void>& other : others) other.wait();
}

}  // namespace

MireloStatus verifyPackage(const Filepath& manifest, PackageReport& report, const PackageOptions& options) {
    try {
        Verification verification(manifest, options);
        workInThreads(verification, std::min<size_t>(options.threads, verification.size()));
        report = std::move(verification).report();
    } catch (const Exception&) {
        return getStatusFromCurrentException();
    }
    if (report.mismatches.empty()) return {SUCCESS, ""};
    const PackageMismatch& first = report.mismatches.front();
    const size_t more = report.mismatches.size() - 1;
    return {MODEL_METADATA_ERROR, "Component \"" + first.component + "\": found is " + first.found + ", wanted is " +
                                      first.wanted +
                                      (more == 0 ? "" : "; mismatches beside it: " + std::to_string(more))};
}

}  // namespace TarnoMirelo::Kit
