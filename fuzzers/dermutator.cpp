// Mutates the elements of a certificate, not its bytes: the lengths around a change are put right, so that the parser
// gets past them and meets it. Every eighth mutation is one of bytes, lengths included.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>
#include <utility>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t length, std::size_t room);

namespace {

using Bytes = std::vector<std::uint8_t>;
using Random = std::minstd_rand;

constexpr std::uint8_t kConstructed = 0x20;
constexpr std::uint8_t kLongLength = 0x80;
constexpr int kDeepest = 32;

// NOLINTBEGIN(misc-no-recursion): elements contain elements, down to kDeepest
struct Element
{
    std::uint8_t tag = 0;
    Bytes content;                 // of a primitive one
    std::vector<Element> children; // of a constructed one
    bool isConstructed = false;
};

/// Takes tag and length from the front of @p bytes. Returns the number of content bytes; -1 if that is not DER.
std::ptrdiff_t takeHeader(const std::uint8_t*& begin, const std::uint8_t* end, std::uint8_t& tag)
{
    if (end - begin < 2)
        return -1;
    tag = *begin++;
    std::size_t length = *begin++;
    if (length > kLongLength) {
        const auto width = static_cast<std::ptrdiff_t>(length - kLongLength);
        if (width > 3 || width > end - begin)
            return -1;
        length = 0;
        for (std::ptrdiff_t i = 0; i < width; ++i)
            length = length << 8U | *begin++;
    }
    const auto result = static_cast<std::ptrdiff_t>(length);
    return result <= end - begin ? result : -1;
}

bool parse(const std::uint8_t* begin, const std::uint8_t* end, std::vector<Element>& elements, int depth)
{
    while (begin != end) {
        Element element;
        const std::ptrdiff_t length = takeHeader(begin, end, element.tag);
        if (length < 0 || depth > kDeepest)
            return false;
        element.isConstructed =
            (element.tag & kConstructed) != 0 && parse(begin, begin + length, element.children, depth + 1);
        if (!element.isConstructed) {
            element.children.clear();
            element.content.assign(begin, begin + length);
        }
        elements.push_back(std::move(element));
        begin += length;
    }
    return true;
}

Bytes encode(const std::vector<Element>& elements)
{
    Bytes bytes;
    for (const Element& element : elements) {
        const Bytes content = element.isConstructed ? encode(element.children) : element.content;
        bytes.push_back(element.tag);
        Bytes length;
        for (std::size_t rest = content.size(); rest > 0; rest >>= 8U)
            length.insert(length.begin(), static_cast<std::uint8_t>(rest));
        if (content.size() >= kLongLength)
            bytes.push_back(static_cast<std::uint8_t>(kLongLength + length.size()));
        else if (content.empty())
            bytes.push_back(0);
        bytes.insert(bytes.end(), length.begin(), length.end());
        bytes.insert(bytes.end(), content.begin(), content.end());
    }
    return bytes;
}

/// The positions of all elements.
struct ElementPosition
{
    std::vector<Element>* siblings;
    std::size_t index;

    Element& element() const { return siblings->at(index); }
};

void collect(std::vector<Element>& elements, std::vector<ElementPosition>& places)
{
    for (std::size_t i = 0; i < elements.size(); ++i) {
        places.push_back({&elements, i});
        collect(elements[i].children, places);
    }
}

// NOLINTEND(misc-no-recursion)

void mutateContent(Element& element)
{
    constexpr std::size_t kGrowth = 16;
    Bytes content = element.isConstructed ? encode(element.children) : element.content;
    const std::size_t before = content.size();
    content.resize(before + kGrowth);
    content.resize(LLVMFuzzerMutate(content.data(), before, content.size()));
    element.isConstructed = false;
    element.content = content;
}

void mutate(std::vector<Element>& elements, Random& random)
{
    std::vector<ElementPosition> places;
    collect(elements, places);
    const auto any = [&] { return places.at(random() % places.size()); };
    const ElementPosition place = any();
    const auto position = place.siblings->begin() + static_cast<std::ptrdiff_t>(place.index);
    switch (random() % 6) {
    case 0:
        place.siblings->erase(position);
        break;
    case 1:
        place.siblings->insert(position, Element(place.element()));
        break;
    case 2: // a copy, as one of the two may be inside the other
        place.element() = Element(any().element());
        break;
    case 3:
        place.element().tag = static_cast<std::uint8_t>(random());
        break;
    case 4:
        place.element().isConstructed = false;
        place.element().content.resize(random() % 4);
        break;
    default:
        mutateContent(place.element());
    }
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t length, std::size_t room, unsigned seed);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t length, std::size_t room, unsigned seed)
{
    Random random(seed);
    std::vector<Element> elements;
    if (random() % 8 == 0 || !parse(data, data + length, elements, 0) || elements.empty())
        return LLVMFuzzerMutate(data, length, room);
    mutate(elements, random);
    const Bytes bytes = encode(elements);
    if (bytes.size() > room)
        return LLVMFuzzerMutate(data, length, room);
    std::copy(bytes.begin(), bytes.end(), data);
    return bytes.size();
}
