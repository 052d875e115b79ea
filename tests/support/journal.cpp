#include "tests/support/journal.h"

#include <cstdio>

namespace testsupport {

void Journal::add(Kind kind, const std::string& text)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_entries.push_back({kind, text});
    if (m_echoes)
        std::fprintf(stderr, "%s\n", text.c_str());
}

void Journal::echo()
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_echoes = true;
}

void Journal::clear()
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_entries.clear();
}

std::vector<std::string> Journal::all() const
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::vector<std::string> texts;
    for (const Entry& entry : m_entries)
        texts.push_back(entry.text);
    return texts;
}

std::vector<std::string> Journal::only(Kind kind) const
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::vector<std::string> texts;
    for (const Entry& entry : m_entries) {
        if (entry.kind == kind)
            texts.push_back(entry.text);
    }
    return texts;
}

std::string join(const std::vector<std::string>& parts, const std::string& separator)
{
    std::string joined;
    for (const std::string& part : parts)
        joined += (joined.empty() ? "" : separator) + part;
    return joined;
}

std::string repeated(int times, const std::string& part)
{
    return join(std::vector<std::string>(static_cast<std::size_t>(times), part), "; ");
}

} // namespace testsupport
