// Exception base of the core library.
//
// An exception carries a numeric id that selects a row of an error table (a
// symbolic key and a message with placeholders "%0", "%1", ...), the list of
// placeholder arguments, an additional-information string, an optional source
// location and an optional chained (previous) exception.  Derived classes
// supply their own table by overriding id2tab(); ids below 24 belong to the
// core table below.
//
// Exception objects created on the heap (clone()) come from the tracked
// allocator; `delete` on a CthrowBase* returns them there.
#ifndef CORE_THROW_H
#define CORE_THROW_H

#include <core/core_export.h>

#include <cstddef>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

// Holder of the error-table row type.
struct CORE_API CbaseTransl {
    // One row of an error table.  A table ends with a row whose id is 0 and
    // whose key and text are null.
    struct TtabTransl {
        int id;
        const char* key;
        const char* text;
    };
};

// Interface of everything that translates an id into a table row and a text.
class CORE_API CtranslatorBase {
public:
    virtual ~CtranslatorBase();
    virtual CbaseTransl::TtabTransl const& id2tab(int id) const = 0;
    virtual operator std::string() const = 0;
};

class CORE_API CthrowBase : public std::exception, public CtranslatorBase {
public:
    // Ids of the core table (all below 24).
    enum {
        ERR_CORE_NONE = 0,          // no error id given
        ERR_CORE_UNKNOWN = 1,       // unspecified failure
        ERR_CORE_NOMEMORY = 2,      // tracked allocation failed, "%0" = bytes requested
        ERR_CORE_INVALID_ARGUMENT = 3,
        ERR_CORE_STREAM = 4,        // stream failure
        ERR_CORE_FIRST_USER = 24    // first id free for derived tables
    };

    // The empty information string callers pass when they have none.
    static const std::string emptyInfo;

    CthrowBase(int id, std::string const& info);
    CthrowBase(std::string const& file, int line, std::string const& info);
    CthrowBase(CthrowBase const& previous, int id, std::string const& info);
    CthrowBase(CthrowBase const& previous, std::string const& file, int line, std::string const& info);
    CthrowBase(CthrowBase const& other);
    CthrowBase& operator=(CthrowBase const& other);
    ~CthrowBase() override;

    // Row of the core table for `id`.  Ids that the table does not hold give
    // the row "CthrowBase::ERR_CORE_UNDEFINED_ID" (id -1).
    CbaseTransl::TtabTransl const& id2tab(int id) const override;

    // "key: message" with the placeholders replaced, followed by
    // " [info]" when the information is not empty, " (file:line)" when a
    // location is set, and "\n<- " plus the chained exception's text.
    operator std::string() const override;

    // Heap copy of the most-derived object (tracked allocation); the caller
    // deletes it.
    virtual CthrowBase* clone() const;
    // Throws a copy of *this with its most-derived type.
    [[noreturn]] virtual void throw_this() const;

    // The composed text, valid until the object changes or is destroyed.
    const char* what() const noexcept override;

    void setExInfo(std::string const& file, int line);

    // One placeholder argument, for the base class itself.
    CthrowBase& operator<<(char const* arg);
    CthrowBase& operator<<(std::string const& arg);

    int id() const { return m_id; }
    std::string const& info() const { return m_info; }
    std::string const& file() const { return m_file; }
    int line() const { return m_line; }
    // The chained exception, or null.
    CthrowBase const* previous() const { return m_previous; }
    std::vector<std::string> const& arguments() const { return m_args; }

    // Exception objects on the heap live in tracked memory.
    static void* operator new(std::size_t size);
    static void operator delete(void* p) noexcept;

protected:
    // Adds one placeholder argument: writes `arg` into the text buffer, appends
    // the buffer's content to the argument list and clears the buffer.
    void addArgument(std::string const& arg);

    std::vector<std::string>& args() { return m_args; }
    std::ostringstream& textBuffer() { return m_buf; }

private:
    int m_id;
    std::string m_info;
    std::string m_file;
    int m_line;
    CthrowBase* m_previous;  // owned clone, or null
    std::vector<std::string> m_args;
    std::ostringstream m_buf;
    mutable std::string m_what;
};

#endif
