#ifndef TESTS_FOUNDATION_ARCHIVETESTOBJECTS_H
#define TESTS_FOUNDATION_ARCHIVETESTOBJECTS_H

#include "foundation/tkArchive.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkPtrHandle.h"

#include <atomic>
#include <sstream>
#include <string>
#include <vector>

/// A counted object that holds others: the material of most archive tests.
class ArchiveNode : public tkPersistent, public tkRepBase
{
public:
    explicit ArchiveNode(long number = 0) : number(number) { ++alive(); }
    ArchiveNode(const ArchiveNode& other)
        : tkPersistent(other),
          tkRepBase(other),
          number(other.number),
          text(other.text),
          children(other.children)
    {
        ++alive();
    }
    ArchiveNode& operator=(const ArchiveNode&) = default;
    ~ArchiveNode() override { --alive(); }

    /// Objects of this class that exist, of all threads.
    static std::atomic<long>& alive()
    {
        static std::atomic<long> count(0);
        return count;
    }

    long number;
    std::wstring text;
    std::vector<tkPtrHandle<ArchiveNode>> children;

protected:
    void dispatchSerialize(tkArchive& archive) override { exchangeLevel_(archive, this, &ArchiveNode::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char version)
    {
        tkArchive::requireVersion0(version);
        tkPersistent::dispatchSerialize(archive);
        archive || number || text || children;
    }
    static tkPersistent* make() { return new ArchiveNode; }
    static const Registration registration_;
};

inline const tkPersistent::Registration ArchiveNode::registration_(typeid(ArchiveNode), &ArchiveNode::make);

/// An object that nobody counts.
class ArchivePlain : public tkPersistent
{
public:
    explicit ArchivePlain(long number = 0) : number(number) { ++alive(); }
    ArchivePlain(const ArchivePlain& other) : tkPersistent(other), number(other.number) { ++alive(); }
    ArchivePlain& operator=(const ArchivePlain&) = default;
    ~ArchivePlain() override { --alive(); }

    static std::atomic<long>& alive()
    {
        static std::atomic<long> count(0);
        return count;
    }

    long number;

protected:
    void dispatchSerialize(tkArchive& archive) override { exchangeLevel_(archive, this, &ArchivePlain::serialize_); }

private:
    void serialize_(tkArchive& archive, unsigned char version)
    {
        tkArchive::requireVersion0(version);
        tkPersistent::dispatchSerialize(archive);
        archive || number;
    }
    static tkPersistent* make() { return new ArchivePlain; }
    static const Registration registration_;
};

inline const tkPersistent::Registration ArchivePlain::registration_(typeid(ArchivePlain), &ArchivePlain::make);

/// "00 ff" for the bytes 0 and 255.
inline std::string hex(const std::string& bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes)
    {
        const auto byte = static_cast<unsigned char>(c);
        text += text.empty() ? "" : " ";
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

/// The bytes of hexadecimal numbers that blanks separate; other words stand for their characters ("'Node").
inline std::string fromHex(const std::string& text)
{
    std::istringstream words(text);
    std::string bytes;
    for (std::string word; words >> word;)
    {
        if (word[0] == '\'')
            bytes += word.substr(1);
        else
            bytes += static_cast<char>(static_cast<unsigned char>(std::stoul(word, nullptr, 16)));
    }
    return bytes;
}

#endif
