#include "common/filecontent.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>

#include "common/scopeddescriptor.h"

namespace VorelKestrel {

FileContent readFile(const std::string& path, std::size_t longest)
{
    constexpr std::size_t kPiece = 65536;
    FileContent content;
    const ScopedDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    ssize_t count = file.get();
    while (count >= 0 && content.bytes.size() <= longest) {
        const std::size_t before = content.bytes.size();
        content.bytes.resize(before + std::min(kPiece, longest + 1 - before));
        count = read(file.get(), &content.bytes[before], content.bytes.size() - before);
        content.bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count == 0)
            return content;
    }
    content.error = count < 0 ? errno : 0;
    content.isTooLong = count > 0;
    content.bytes.resize(std::min(content.bytes.size(), longest));
    return content;
}

} // namespace VorelKestrel
