#ifndef FOUNDATION_TKSCRATCH_H
#define FOUNDATION_TKSCRATCH_H

#include <cstddef>
#include <memory>
#include <type_traits>

/// Working memory of a length known at run time: on the stack up to a length that covers nearly every use, so
/// that the operation allocates nothing, on the heap beyond. The elements are not initialised.
template <class Element, std::size_t local = 64>
class tkScratch
{
public:
    static_assert(std::is_trivially_copyable_v<Element>, "the elements are plain data");

    explicit tkScratch(std::size_t size)
        : size_(size),
          heap_(size > local ? new Element[size] : nullptr),
          elements_(heap_ ? heap_.get() : stack_)
    {
    }

    tkScratch(const tkScratch&) = delete;
    tkScratch& operator=(const tkScratch&) = delete;

    std::size_t size() const { return size_; }
    Element* data() { return elements_; }
    const Element* data() const { return elements_; }
    Element& operator[](std::size_t i) { return elements_[i]; }
    const Element& operator[](std::size_t i) const { return elements_[i]; }
    Element* begin() { return elements_; }
    Element* end() { return elements_ + size_; }

    /// Leaves the first `size` elements; *requires* no more than there are.
    void shrink(std::size_t size) { size_ = size; }

private:
    std::size_t size_;
    std::unique_ptr<Element[]> heap_;
    Element stack_[local];
    Element* elements_;
};

#endif
