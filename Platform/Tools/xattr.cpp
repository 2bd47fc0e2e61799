// Shows and changes the extended attributes of files.

#include "Platform/Formats/ExtendedAttributes/ExtendedAttributes.hpp"
#include "Platform/Formats/FormatError.hpp"
#include "Platform/Tools/Termination.hpp"
#include "Platform/Tools/Tool.hpp"
#include "Support/CancellationError.hpp"
#include "Support/FileManager.hpp"
#include "Support/Text.hpp"

#include <algorithm>

namespace corvane::Tools {
namespace {

constexpr const char* usage = "Usage: xattr [-lr] FILE ...\n"
                              "       xattr -p [-r] NAME FILE ...\n"
                              "       xattr -w [-r] NAME VALUE FILE ...\n"
                              "       xattr -d [-r] NAME FILE ...";

struct Call {
    /// 0 lists names; else 'l', 'p', 'w' or 'd'.
    char action = 0;
    bool isRecursive = false;
    std::string name;
    std::string value;
    std::vector<std::string> files;
};

Call parse(const Arguments& arguments) {
    Call call;
    auto next = arguments.begin();
    for (; next != arguments.end() && next->size() > 1 && next->front() == '-'; ++next) {
        for (const char letter : next->substr(1)) {
            const bool isAction = std::string_view("lpwd").find(letter) != std::string_view::npos;
            const bool isFirst = call.action == 0 || call.action == letter;
            if (letter != 'r' && !(isAction && isFirst)) throw UsageError(usage);
            if (letter == 'r') call.isRecursive = true;
            if (letter != 'r') call.action = letter;
        }
    }
    const auto take = [&] {
        if (next == arguments.end()) throw UsageError(usage);
        return *next++;
    };
    if (call.action != 0 && call.action != 'l') call.name = take();
    if (call.action == 'w') call.value = take();
    call.files.assign(next, arguments.end());
    if (call.files.empty()) throw UsageError(usage);
    return call;
}

/// Whether a terminal shows a value as it is.
bool isText(std::string value) {
    std::erase_if(value, [](char byte) { return byte == '\n' || byte == '\t'; });
    return Text::printable(value) == value;
}

/// Pairs of digits, sixteen bytes a line.
std::string hexadecimalLines(const std::string& value) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t place = 0; place < value.size(); ++place) {
        const auto byte = static_cast<unsigned char>(value[place]);
        if (place > 0) text += place % 16 == 0 ? '\n' : ' ';
        text.append({digits[byte >> 4U], digits[byte & 15U]});
    }
    return text;
}

/// Carries a call out on one item after the other.
class Work {
  public:
    Work(const Call& call, const std::stop_token& stop)
        : call_(call), stop_(stop), showsFiles_(call.isRecursive || call.files.size() > 1) {}

    int run() {
        for (const std::string& file : call_.files) addNamed(file);
        return status_;
    }

  private:
    /// A link is followed where the caller names it, and nowhere below: the work stays in the tree.
    void addNamed(const std::string& file) {
        if (!FileManager::fileExists(file)) return fail("No such file: " + file);
        std::error_code failure;
        const bool isLink = std::filesystem::is_symlink(file, failure);
        const FileURL item = isLink ? std::filesystem::canonical(file, failure) : FileURL(file);
        if (failure) return fail(file + ": " + failure.message());
        std::vector<FileURL> items{item};
        while (!items.empty()) {
            checkCancellation(stop_);
            const FileURL next = items.back();
            items.pop_back();
            reporting(next, [&] { act(next); });
            if (call_.isRecursive) reporting(next, [&] { addContent(next, items); });
        }
    }

    /// Companions are left out: what is in them is that of others.
    static void addContent(const FileURL& folder, std::vector<FileURL>& items) {
        if (!S_ISDIR(FileManager::itemStatus(folder).st_mode)) return;
        std::vector<FileURL> content = FileManager::contentsOfDirectory(folder);
        std::erase_if(content, [](const FileURL& item) { return ExtendedAttributes::isCompanion(item); });
        std::sort(content.rbegin(), content.rend());
        items.insert(items.end(), content.begin(), content.end());
    }

    void act(const FileURL& item) {
        switch (call_.action) {
        case 'd':
            if (!ExtendedAttributes::remove(item, call_.name)) failAbsent(item);
            return;
        case 'w':
            return ExtendedAttributes::set(item, call_.name, call_.value);
        case 'p':
            if (const auto value = ExtendedAttributes::value(item, call_.name)) {
                return print(label(item) + (isText(*value) ? *value : hexadecimalLines(*value)) + "\n");
            }
            return failAbsent(item);
        default:
            for (const std::string& name : ExtendedAttributes::names(item)) show(item, name);
        }
    }

    void show(const FileURL& item, const std::string& name) const {
        std::string line = label(item) + Text::printable(name);
        if (call_.action == 'l') {
            const std::string value = ExtendedAttributes::value(item, name).value_or("");
            line += isText(value) ? ": " + value : ":\n" + hexadecimalLines(value);
        }
        print(line + "\n");
    }

    std::string label(const FileURL& item) const {
        return showsFiles_ ? Text::printable(item.string()) + ": " : std::string();
    }

    /// In a whole tree most items lack what a few have.
    void failAbsent(const FileURL& item) {
        if (!call_.isRecursive) fail(item.string() + ": No such xattr: " + call_.name);
    }

    void fail(const std::string& text) {
        printError(Text::printable("xattr: " + text) + "\n");
        status_ = 1;
    }

    /// One item that fails does not keep the others from their turn.
    template <class Action>
    void reporting(const FileURL& item, Action action) {
        try {
            action();
        } catch (const FileError& error) {
            fail(item.string() + ": " + error.code().message());
        } catch (const FormatError& error) {
            fail(error.what());
        }
    }

    const Call& call_;
    const std::stop_token& stop_;
    bool showsFiles_;
    int status_ = 0;
};

} // namespace

int xattr(const Arguments& arguments) {
    const Call call = parse(arguments);
    return runUntilTerminated([&](const std::stop_token& stop) { return Work(call, stop).run(); });
}

} // namespace corvane::Tools
