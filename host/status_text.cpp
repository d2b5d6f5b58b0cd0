// Names of the statuses an application meets: the module's codes as they
// reach it, and the codes of the host's own services and providers.
#include <cstdint>

#include "host_internal.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_catalogue.h"
#include "zelto/zelto_host_services.h"

namespace {

struct StatusText {
    uint32_t status;
    const char *text;
};

// One row per distinct status word.
constexpr StatusText kTexts[] = {
    {0, "success"},
    {ZELTO_CANTRIX_INVALID_ARG, "invalid argument"},
    {ZELTO_CANTRIX_NO_MEMORY, "out of memory"},
    {ZELTO_CANTRIX_RESULT_NO_OBJECT, "result without object"},
    {ZELTO_CANTRIX_NOT_FOUND, "not found"},
    {ZELTO_CANTRIX_BUSY, "query busy"},
    {ZELTO_CANTRIX_NOT_INITIALIZED, "module not initialised"},
    {ZELTO_CANTRIX_INIT_FAILED, "initialisation failed"},
    {ZELTO_CANTRIX_UNSUPPORTED, "unsupported"},
    {ZELTO_CANTRIX_INVALID_DATA, "invalid data"},
    {ZELTO_CANTRIX_NO_SERVICE, "no lookup provider for this mode"},
    {ZELTO_CANTRIX_INVALID_TOC, "invalid TOC"},
    {ZELTO_CANTRIX_FP_KIND_UNSENDABLE, "fingerprint kind cannot be sent"},
    {ZELTO_CANTRIX_NO_SUITABLE_INPUT, "no suitable input for this search"},
    {ZELTO_CANTRIX_BAD_MANAGER, "not a manager table of this version"},
    {ZELTO_CANTRIX_RANGE_INVALID, "invalid result range"},
    {ZELTO_CANTRIX_INVALID_UTF8, "invalid UTF-8"},
    {ZELTO_CANTRIX_LOOKUP_FAILED, "lookup service failure"},
    {ZELTO_CANTRIX_LISTS_FAILED, "list service failure"},
    {ZELTO_CANTRIX_RVO_FAILED, "result-object service failure"},
    {ZELTO_CANTRIX_MANAGER_FAILED, "manager failure"},
    {ZELTO_CANTRIX_SERIAL_FAILED, "serialisation failure"},
    {ZELTO_MANAGER_BAD_ARG, "invalid argument to the manager"},
    {ZELTO_MANAGER_NO_SERVICE, "no such service"},
    {ZELTO_RVO_BAD_ARG, "invalid result object or key"},
    {ZELTO_RVO_NO_MEMORY, "out of memory"},
    {ZELTO_RVO_NOT_FOUND, "not found"},
    {ZELTO_RVO_UNSUPPORTED, "operation not offered by the object"},
    {ZELTO_RVO_WITHHELD, "withheld by the data flags"},
    {ZELTO_LISTS_BAD_ARG, "invalid argument to the list service"},
    {ZELTO_LISTS_UNKNOWN, "unknown language"},
    {ZELTO_SERIAL_BAD_ARG, "invalid argument to the serialisation service"},
    {ZELTO_SERIAL_NO_MEMORY, "out of memory"},
    {ZELTO_SERIAL_MALFORMED, "malformed serial text"},
    {ZELTO_LOOKUP_BAD_ARG, "invalid argument to the lookup provider"},
    {ZELTO_LOOKUP_NO_MEMORY, "out of memory"},
    {ZELTO_LOOKUP_NO_RESULT, "no result"},
    {ZELTO_LOOKUP_ABORTED, "lookup aborted"},
    {ZELTO_LOOKUP_UNSUPPORTED, "unknown lookup type"},
    {ZELTO_LOOKUP_INVALID_DATA, "request data refused by the provider"},
    {ZELTO_CATALOGUE_NO_FILE, "no such catalogue file"},
    {ZELTO_CATALOGUE_IO_ERROR, "file cannot be read"},
    {ZELTO_CATALOGUE_DATABASE, "catalogue database failure"},
};

}  // namespace

HOST_EXPORT const char *zelto_manager_status_text(uint32_t status) {
    for (const StatusText &row : kTexts)
        if (row.status == status) return row.text;
    return (status & 0x80000000u) ? "failure" : "soft status";
}
