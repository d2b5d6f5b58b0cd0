// Internals of the catalogue's lookup provider, shared by its units:
// request.cpp reads what a lookup asks for, answers.cpp runs it against the
// catalogue and builds the answer tree, table.cpp holds the provider table's
// slots and the registry of live catalogues and requests, catalogue_api.cpp
// the exported zelto_catalogue_* calls.
#ifndef ZELTO_PROVIDERS_CATALOGUE_PROVIDER_H
#define ZELTO_PROVIDERS_CATALOGUE_PROVIDER_H

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "providers/catalogue/store/catalogue.h"
#include "zelto/zelto_catalogue.h"

namespace catalogue_provider {

// The provider table comes first so that a table pointer leads back to its
// owner; tables are never freed, only retired (see zelto_catalogue_close).
struct ProviderTable {
    zelto_lookup_interface table;
    zelto_catalogue *owner;
};

// One declared lookup of a request and what was sent for it.
struct Lookup {
    std::string type, id;
    // Looked up by the constant key texts without copying them.
    std::map<std::string, std::string, std::less<>> data;  // null values are left out
    std::map<std::string, std::string, std::less<>> options;
    zelto_manager_tree *result = nullptr;  // one reference held
};

}  // namespace catalogue_provider

struct zelto_catalogue {
    std::unique_ptr<catalogue::Catalogue> db;
    catalogue_provider::ProviderTable *provider = nullptr;  // never freed
    std::mutex mutex;                                       // guards the texts below and the request count
    std::string message;
    std::vector<std::string> import_messages;
    std::vector<std::string> disc_id_tocs;  // of the last zelto_catalogue_find_disc_id
    std::vector<catalogue::AlbumListEntry> listed;  // of the last list or remove call
    uint32_t live_requests = 0;
    // Texts handed out by the fingerprint calls, until the next one.
    catalogue::FingerprintAdded last_added;
    std::string last_tui;
};

struct zelto_lookup_request_s {
    const catalogue_provider::ProviderTable *table = nullptr;
    zelto_lookup_callback callback = nullptr;
    void *callback_data = nullptr;
    std::vector<catalogue_provider::Lookup> lookups;
    void *user = nullptr;
};

namespace catalogue_provider {

// ---- Request parsing (request.cpp) ----------------------------------------------

// What one lookup of a request asks for, read from its data and options.
class LookupData {
 public:
    explicit LookupData(const Lookup &lookup) : lookup_(lookup) {}

    const std::string &type() const { return lookup_.type; }
    // A data text, "" when absent.
    std::string text(const char *key) const;
    // A data text that is present and not empty.
    bool has(const char *key) const;
    // A decimal data number, or `fallback` when absent or empty; false when
    // it is no number of 32 bits.
    bool number(const char *key, uint32_t fallback, uint32_t &out) const;
    // The result range, from 1 and inclusive (1 to 10 unless asked; one hit
    // with the single-result option); false with the reason when malformed.
    bool range(catalogue::Range &out, std::string &why) const;
    catalogue::TextQuery text_query() const;
    catalogue::LyricQuery lyric_query() const;
    // An album or track asked for by identifier, or a disc by media identifier.
    bool has_identifier() const;
    bool has_fingerprint() const;

 private:
    const Lookup &lookup_;
};

bool has_text(const catalogue::TextQuery &query);

// ---- Answers (answers.cpp) --------------------------------------------------------

// Sends progress events through a request's callback; false once the
// callback asked to stop.
class Events {
 public:
    explicit Events(const zelto_lookup_request_s &request) : request_(request) {}
    bool send(uint32_t code, uint32_t value1 = 0, uintptr_t value2 = 0);
    bool aborted() const { return aborted_; }

 private:
    const zelto_lookup_request_s &request_;
    uint8_t flag_ = 0;
    bool aborted_ = false;
};

// Runs one lookup against the catalogue. On success `out_tree` receives the
// answer with one reference; otherwise the status and `message` say why.
uint32_t answer_lookup(catalogue::Catalogue &db, const Lookup &lookup, Events &events, zelto_manager_tree **out_tree,
                       std::string &message);

// ---- Statuses and the registry (table.cpp) ----------------------------------------

uint32_t status_of(const catalogue::Status &s);
// Records a failure's message on the catalogue and gives its status back.
uint32_t fail(zelto_catalogue *c, uint32_t status, std::string message);
uint32_t fail(zelto_catalogue *c, const catalogue::Status &s);

// A new provider table of a catalogue, every slot in place.
ProviderTable *new_table(zelto_catalogue *owner);
// Adds an open catalogue to the registry, or takes a closing one out (false
// if it was not there); a closed catalogue's table stays callable.
void register_catalogue(zelto_catalogue *c);
bool unregister_catalogue(zelto_catalogue *c);
void retire_table(ProviderTable *table);
bool live(zelto_catalogue *c);

}  // namespace catalogue_provider

#endif
