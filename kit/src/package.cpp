#include "file_digest.h"
#include "manifest_json.h"

#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/package.h>

#include <algorithm>
#include <atomic>
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

std::string bytesText(uint64_t size) { return std::to_string(size) + " bytes"; }

// What can be said without the file.
void checkStatement(Subject& subject) {
    FileStatement& statement = subject.statement;
    if (!statement.hasSize && !statement.hasDigest) return;
    for (char& digit : statement.digest) {
        if (digit >= 'A' && digit <= 'F') digit = static_cast<char>(digit - 'A' + 'a');
    }
    const bool isDigest =
        statement.digest.size() == 64 && statement.digest.find_first_not_of("0123456789abcdef") == std::string::npos;
    if (!isFile(statement.kind)) {
        subject.mismatches("kind \"" + statement.kind + "\"", "the kind of a file, since a size or a digest is stated");
    } else if (statement.path.empty() || !staysInside(statement.path)) {
        subject.mismatches("path \"" + statement.path + "\"", "a name below the model's directory");
    } else if (statement.hasSize && !statement.size) {
        subject.mismatches("a \"size\" that is no whole number", "a number of bytes");
    } else if (statement.hasDigest && !isDigest) {
        subject.mismatches("sha256 \"" + statement.digest + "\"", "64 hexadecimal digits");
    }
}

// The files of a package, looked at by several threads.
class Verification {
 public:
    Verification(const Filepath& manifest, const PackageOptions& options)
        : root_(manifest.parent_path()), options_(options) {
        for (FileStatement& statement : readStatements(manifest)) {
            subjects_.emplace_back().statement = std::move(statement);
            checkStatement(subjects_.back());
            if (options.progress && isToRead(subjects_.back())) progress_.total += sizeOf(subjects_.back());
        }
    }

    size_t size() const { return subjects_.size(); }

    // Until there is none left, or another thread has failed.
    void work() {
        for (size_t i = next_++; i < subjects_.size(); i = next_++) {
            try {
                if (!subjects_[i].mismatch) checkFile(subjects_[i]);
            } catch (...) {
                next_ = subjects_.size();
                throw;
            }
        }
    }

    PackageReport report() && {
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
        } catch (const FileException&) {
            subject.mismatches("no file that can be read", wanted);
        }
    }

    void tell(const std::string& path, size_t bytes) {
        if (!options_.progress) return;
        const std::lock_guard<std::mutex> lock(lock_);
        progress_.path = path;
        progress_.done += bytes;
        options_.progress(progress_);
    }

    const Filepath root_;
    const PackageOptions& options_;
    std::vector<Subject> subjects_;
    std::atomic<size_t> next_{0};
    std::mutex lock_;
    PackageProgress progress_;
};

// In the caller's thread and in as many others as are asked for and can be had. All have ended when this returns or
// raises.
void workInThreads(Verification& verification, size_t threads) {
    std::vector<std::future<void>> others;
    try {
        for (size_t i = 1; i < threads; ++i) {
            others.push_back(std::async(std::launch::async, [&verification] { verification.work(); }));
        }
    } catch (const std::system_error&) {  // NOLINT(bugprone-empty-catch): fewer do the work
    }
    verification.work();
    for (std::future<void>& other : others) other.get();
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
