#include "Tests/Platform/Formats/HfsPlus/TestTreeFile.hpp"

#include "Platform/Formats/BigEndian.hpp"

namespace corvane::TestSupport {
namespace {

constexpr std::size_t descriptorSize = 14;

std::string number(std::uint64_t value, std::size_t width) {
    std::string bytes;
    appendBigEndian(bytes, value, width);
    return bytes;
}

/// A node while it is filled.
struct Node {
    std::string firstKey;
    std::vector<std::string> records;
    std::size_t size = descriptorSize + 2;
};

class TreeFile {
  public:
    TreeFile(const std::vector<TestRecord>& records, const TestTreeKind& kind, std::size_t nodeSize)
        : kind_(kind), nodeSize_(nodeSize), nodes_(1) {
        std::vector<Node> level = filled(records);
        records_ = records.size();
        while (!level.empty()) {
            ++depth_;
            const std::size_t first = nodes_.size();
            write(level);
            root_ = first;
            if (level.size() == 1) break;
            level = filled(index(level, first));
        }
    }

    std::string bytes() {
        std::string free;
        for (std::size_t node = 0; node < nodes_.size(); node += 8) {
            const std::size_t used = std::min<std::size_t>(8, nodes_.size() - node);
            free += static_cast<char>(0xFF << (8 - used));
        }
        free.resize(nodeSize_ - 256);
        nodes_.front() = node(0, 0, 1, 0, {header(), std::string(128, '\0'), free});
        std::string all;
        for (const std::string& each : nodes_) all += each;
        return all;
    }

  private:
    std::vector<Node> filled(const std::vector<TestRecord>& records) const {
        std::vector<Node> level;
        for (const TestRecord& each : records) {
            const std::string record = number(each.key.size(), 2) + each.key + each.value;
            if (level.empty() || level.back().size + record.size() + 2 > nodeSize_) level.push_back({each.key, {}});
            level.back().records.push_back(record);
            level.back().size += record.size() + 2;
        }
        return level;
    }

    std::vector<TestRecord> index(const std::vector<Node>& level, std::size_t first) const {
        std::vector<TestRecord> records;
        for (const Node& each : level) {
            std::string key = each.firstKey;
            if (!kind_.hasVariableKeys) key.resize(kind_.longestKey);
            records.push_back({key, number(first++, 4)});
        }
        return records;
    }

    void write(const std::vector<Node>& level) {
        const std::size_t first = nodes_.size();
        for (std::size_t place = 0; place < level.size(); ++place) {
            const std::size_t next = place + 1 < level.size() ? first + place + 1 : 0;
            const std::size_t previous = place > 0 ? first + place - 1 : 0;
            const int kind = depth_ == 1 ? 0xFF : 0;
            nodes_.push_back(node(next, previous, kind, depth_, level[place].records));
        }
        if (depth_ == 1) lastLeaf_ = nodes_.size() - 1;
    }

    std::string node(std::size_t next, std::size_t previous, int kind, std::size_t height,
                     const std::vector<std::string>& records) const {
        std::string bytes = number(next, 4) + number(previous, 4) + static_cast<char>(kind) + number(height, 1) +
                            number(records.size(), 2) + number(0, 2);
        std::string offsets;
        for (const std::string& each : records) {
            offsets = number(bytes.size(), 2) + offsets;
            bytes += each;
        }
        offsets = number(bytes.size(), 2) + offsets;
        bytes.resize(nodeSize_ - offsets.size());
        return bytes + offsets;
    }

    std::string header() const {
        std::string bytes = number(depth_, 2) + number(root_, 4) + number(records_, 4) +
                            number(depth_ == 0 ? 0 : 1, 4) + number(lastLeaf_, 4) + number(nodeSize_, 2) +
                            number(kind_.longestKey, 2) + number(nodes_.size(), 4) + number(0, 4) + number(0, 2) +
                            number(nodeSize_, 4) + number(0, 1) + number(kind_.comparison, 1) +
                            number(kind_.hasVariableKeys ? 6 : 2, 4);
        bytes.resize(106);
        return bytes;
    }

    TestTreeKind kind_;
    std::size_t nodeSize_;
    std::vector<std::string> nodes_;
    std::size_t records_ = 0;
    std::size_t depth_ = 0;
    std::size_t root_ = 0;
    std::size_t lastLeaf_ = 0;
};

} // namespace

std::string testTreeFile(const std::vector<TestRecord>& records, const TestTreeKind& kind, std::size_t nodeSize) {
    return TreeFile(records, kind, nodeSize).bytes();
}

} // namespace corvane::TestSupport
