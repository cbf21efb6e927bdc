#include "cache.h"

#include "engine.h"
#include "processor.h"

#include <TarnoMirelo/kit/digest.h>

#include <chrono>
#include <fstream>
#include <random>
#include <string_view>
#include <utility>

namespace TarnoMirelo::OnnxRuntime {
namespace {

constexpr std::string_view kBegin = "sdk-core optimised network 2\n";
constexpr size_t kDigestSize = 64;
constexpr size_t kHeaderSize = kBegin.size() + 2 * (kDigestSize + 1);  // key and digest, each with a line feed

std::string digestOf(const void* data, uint64_t size) {
    std::string digest;
    require(Kit::sha256(data, size, digest));
    return digest;
}

std::string digestOf(const std::string& text) { return digestOf(text.data(), text.size()); }

std::string digestOfFile(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    std::string digest;
    require(Kit::sha256OfFile(Filepath(std::string(text.begin(), text.end())), digest));
    return digest;
}

std::string digestsOf(const std::vector<std::filesystem::path>& files) {
    std::string digests;
    for (const std::filesystem::path& file : files) digests += " " + digestOfFile(file);
    return digests;
}

// A name that no other process or thread uses, for a file that goes when this object does.
class TemporaryFile {
 public:
    explicit TemporaryFile(std::filesystem::path beside) : path_(std::move(beside)) {
        std::random_device random;
        path_ += "." + std::to_string(random()) + "-" + std::to_string(random()) + ".tmp";
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        std::error_code ignored;  // it may have been renamed, or never been written
        std::filesystem::remove(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }

 private:
    std::filesystem::path path_;
};

// Removes what a process left that was killed while it wrote such a file. No file takes an hour to write.
void removeLeftovers(const std::filesystem::path& beside) {
    const auto oldest = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    const auto begin = beside.filename().native();
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(beside.parent_path(), error)) {
        const std::filesystem::path& path = entry.path();
        if (path.extension() != ".tmp" || path.filename().native().compare(0, begin.size(), begin) != 0) continue;
        if (entry.last_write_time(error) < oldest && !error) std::filesystem::remove(path, error);
    }
}

Kit::ComponentBytes readFile(const std::filesystem::path& path) {
    if (!std::filesystem::is_regular_file(path)) throw FileException("is no file");  // a folder can be opened, too
    std::ifstream stream(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = stream.tellg();
    if (!stream || size < 0) throw FileException("cannot be opened");
    auto bytes = std::make_unique_for_overwrite<char[]>(static_cast<size_t>(size));
    stream.seekg(0);
    if (!stream.read(bytes.get(), size)) throw FileException("cannot be read");
    return {std::move(bytes), static_cast<uint64_t>(size)};
}

}  // namespace

Cache::Cache(const Filepath& directory, const std::string& modelName, const std::string& componentName,
             const NetworkFile& network, GraphOptimization optimization, OrtEP provider)
    : directory_(directory), path_(directory), weights_(network.weights) {
    const std::string processor = processorFeatures();
    if (processor.empty()) throw InvalidOperationException("there is no cache on processors of this kind");
    if (!network.weights.empty() && engine().version < kVersionWithWeightsFolder) {
        throw InvalidOperationException("weights in files of their own need ONNX Runtime 1." +
                                        std::to_string(kVersionWithWeightsFolder) + " or later");
    }
    weightDigests_ = digestsOf(weights_);
    key_ = digestOf(digestOf(network.bytes.data(), network.bytes.size()) + weightDigests_ + processor + " " +
                    engine().release + " " + std::to_string(static_cast<int>(optimization)) + " " +
                    std::to_string(static_cast<uint64_t>(provider)));
    std::string name = modelName;
    name += '\0';
    path_.append(Filepath(digestOf(name + componentName).substr(0, kDigestSize / 2) + ".network"));
}

CacheStatus Cache::read(CachedNetwork& cached) const {
    try {
        const std::filesystem::path path = toSystemPath(path_);
        std::error_code error;
        if (!std::filesystem::exists(path, error)) return CacheStatus::NotCached;
        Kit::ComponentBytes file = readFile(path);
        const std::string_view all(reinterpret_cast<const char*>(file.data()), static_cast<size_t>(file.size()));
        if (all.size() < kHeaderSize) return CacheStatus::Stale;
        const std::string_view body = all.substr(kHeaderSize);
        const std::string wanted = std::string(kBegin) + key_ + "\n" + digestOf(body.data(), body.size()) + "\n";
        if (all.substr(0, kHeaderSize) != wanted) return CacheStatus::Stale;
        cached.network = {file.data() + kHeaderSize, body.size()};
        cached.file = std::move(file);
        return CacheStatus::Cached;
    } catch (const Exception&) {
        return CacheStatus::Stale;  // it is there, and can't be used
    }
}

CacheStatus Cache::status() const {
    CachedNetwork cached;
    return read(cached);
}

std::optional<CachedNetwork> Cache::load() const {
    CachedNetwork cached;
    if (read(cached) != CacheStatus::Cached) return std::nullopt;
    return cached;
}

CachedNetwork Cache::store(const std::function<void(const std::filesystem::path&)>& write) const {
    const std::filesystem::path path = toSystemPath(path_);
    std::filesystem::create_directories(toSystemPath(directory_));
    removeLeftovers(path);
    const TemporaryFile byEngine(path);
    write(byEngine.path());
    // The engine has read the weights after they were digested.
    if (digestsOf(weights_) != weightDigests_) throw FileException("the weights have changed meanwhile");
    Kit::ComponentBytes network = readFile(byEngine.path());
    const TemporaryFile whole(path);
    const std::string header = std::string(kBegin) + key_ + "\n" + digestOf(network.data(), network.size()) + "\n";
    std::ofstream stream(whole.path(), std::ios::binary);
    stream.write(header.data(), static_cast<std::streamsize>(header.size()));
    stream.write(reinterpret_cast<const char*>(network.data()), static_cast<std::streamsize>(network.size()));
    stream.close();
    if (!stream) throw FileException("the file can't be written");
    std::filesystem::rename(whole.path(), path);
    const Kit::ComponentBytes all(network.data(), network.size());
    return {std::move(network), Kit::ComponentBytes(all.data(), all.size())};
}

}  // namespace TarnoMirelo::OnnxRuntime
