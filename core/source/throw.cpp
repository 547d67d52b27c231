#include <core/memtracker.h>
#include <core/throw.h>

#include <cctype>
#include <new>

namespace {

const CbaseTransl::TtabTransl coreTable[] = {
    {CthrowBase::ERR_CORE_NONE, "CthrowBase::ERR_CORE_NONE", "Kein Fehler angegeben."},
    {CthrowBase::ERR_CORE_UNKNOWN, "CthrowBase::ERR_CORE_UNKNOWN", "Unbekannter Fehler."},
    {CthrowBase::ERR_CORE_NOMEMORY, "CthrowBase::ERR_CORE_NOMEMORY",
     "Speicher von %0 Bytes konnte nicht angefordert werden."},
    {CthrowBase::ERR_CORE_INVALID_ARGUMENT, "CthrowBase::ERR_CORE_INVALID_ARGUMENT", "Ungueltiges Argument."},
    {CthrowBase::ERR_CORE_STREAM, "CthrowBase::ERR_CORE_STREAM", "Fehler im Datenstrom."},
    {0, nullptr, nullptr}};

const CbaseTransl::TtabTransl undefinedRow = {-1, "CthrowBase::ERR_CORE_UNDEFINED_ID", "Unbekannte Fehlernummer."};

CthrowBase* cloneOf(CthrowBase const* p) { return p ? p->clone() : nullptr; }

}  // namespace

CtranslatorBase::~CtranslatorBase() = default;

const std::string CthrowBase::emptyInfo;

CthrowBase::CthrowBase(int id, std::string const& info)
    : m_id(id), m_info(info), m_line(0), m_previous(nullptr) {}

CthrowBase::CthrowBase(std::string const& file, int line, std::string const& info)
    : m_id(ERR_CORE_NONE), m_info(info), m_file(file), m_line(line), m_previous(nullptr) {}

// The previous exception is cloned in the body, after every member exists:
// should a member's allocation fail, no clone has been taken yet, and should
// the clone fail, the members are destroyed as usual.  Nothing leaks.
CthrowBase::CthrowBase(CthrowBase const& previous, int id, std::string const& info)
    : m_id(id), m_info(info), m_line(0), m_previous(nullptr) {
    m_previous = previous.clone();
}

CthrowBase::CthrowBase(CthrowBase const& previous, std::string const& file, int line, std::string const& info)
    : m_id(ERR_CORE_NONE), m_info(info), m_file(file), m_line(line), m_previous(nullptr) {
    m_previous = previous.clone();
}

CthrowBase::CthrowBase(CthrowBase const& o)
    : std::exception(o),
      CtranslatorBase(o),
      m_id(o.m_id),
      m_info(o.m_info),
      m_file(o.m_file),
      m_line(o.m_line),
      m_previous(nullptr),
      m_args(o.m_args) {
    m_previous = cloneOf(o.m_previous);
}

CthrowBase& CthrowBase::operator=(CthrowBase const& o) {
    if (this == &o) return *this;
    CthrowBase* prev = cloneOf(o.m_previous);  // may throw; *this is untouched then
    delete m_previous;
    m_previous = prev;
    m_id = o.m_id;
    m_info = o.m_info;
    m_file = o.m_file;
    m_line = o.m_line;
    m_args = o.m_args;
    m_buf.str(std::string());
    m_what.clear();
    return *this;
}

CthrowBase::~CthrowBase() { delete m_previous; }

CbaseTransl::TtabTransl const& CthrowBase::id2tab(int id) const {
    for (const CbaseTransl::TtabTransl* row = coreTable; row->key != nullptr; ++row)
        if (row->id == id) return *row;
    return undefinedRow;
}

CthrowBase::operator std::string() const {
    CbaseTransl::TtabTransl const& row = id2tab(m_id);
    std::string out = row.key ? row.key : "";
    out += ": ";
    const std::string text = row.text ? row.text : "";
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 1 < text.size() && std::isdigit(static_cast<unsigned char>(text[i + 1]))) {
            std::size_t j = i + 1;
            std::size_t index = 0;
            while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j])) && index < 1000000) {
                index = index * 10 + static_cast<std::size_t>(text[j] - '0');
                ++j;
            }
            if (index < m_args.size()) {
                out += m_args[index];
                i = j - 1;
                continue;
            }
        }
        out += text[i];
    }
    if (!m_info.empty()) out += " [" + m_info + "]";
    if (!m_file.empty()) out += " (" + m_file + ":" + std::to_string(m_line) + ")";
    if (m_previous) out += "\n<- " + static_cast<std::string>(*m_previous);
    return out;
}

CthrowBase* CthrowBase::clone() const { return new CthrowBase(*this); }

void CthrowBase::throw_this() const { throw CthrowBase(*this); }

const char* CthrowBase::what() const noexcept {
    try {
        m_what = static_cast<std::string>(*this);
    } catch (...) {
        return "CthrowBase";
    }
    return m_what.c_str();
}

void CthrowBase::setExInfo(std::string const& file, int line) {
    m_file = file;
    m_line = line;
}

void CthrowBase::addArgument(std::string const& arg) {
    m_buf << arg;
    m_args.push_back(m_buf.str());
    m_buf.str(std::string());
}

CthrowBase& CthrowBase::operator<<(char const* arg) {
    addArgument(arg ? arg : "");
    return *this;
}

CthrowBase& CthrowBase::operator<<(std::string const& arg) {
    addArgument(arg);
    return *this;
}

void* CthrowBase::operator new(std::size_t size) {
    return core_memTracker_malloc(core::memTracker_bytes(size, 1), true);
}

void CthrowBase::operator delete(void* p) noexcept { core_memTracker_free(p); }
