#ifndef NUMERICS_TKNMBUFFER_H
#define NUMERICS_TKNMBUFFER_H

#include <cstddef>
#include <memory>

/// Working memory for a known number of plain values, not initialised: on the stack up to `Inplace` of them, so
/// that patterns of usual lengths cost no allocation, on the heap beyond.
template <class Value, std::size_t Inplace = 256>
class tkNMBuffer
{
public:
    explicit tkNMBuffer(std::size_t size)
        : heap_(size > Inplace ? new Value[size] : nullptr),
          values_(heap_ ? heap_.get() : inplace_)
    {
    }
    tkNMBuffer(const tkNMBuffer&) = delete;
    tkNMBuffer& operator=(const tkNMBuffer&) = delete;

    Value* data() { return values_; }
    const Value* data() const { return values_; }
    Value& operator[](std::size_t i) { return values_[i]; }
    const Value& operator[](std::size_t i) const { return values_[i]; }

private:
    std::unique_ptr<Value[]> heap_;
    Value* values_;
    Value inplace_[Inplace];
};

#endif
