// The file-handle manager: logical files borrow system descriptors, at most
// "ombr_fs_max_handles" at a time (0: no limit). A file that is idle keeps
// its descriptor on the live list, least recently released first; when a
// descriptor is needed at the limit the front of the live list loses its
// descriptor and moves to the open list, and gets one back on its next use.
//
// All state is guarded by one re-entrant section. Every release
// and every close of a file with a descriptor signals an auto-reset event;
// a caller at the limit leaves the section and waits for that event before
// it evicts. System calls on a file run outside the section, protected by
// the file's use count, which keeps it off the live list.
#include <atomic>

#include "ombr/ombr_string.h"
#include "ombr/ombr_thread.h"
#include "platform/ombr_frame.h"
#include "platform/ombr_fs_internal.h"
#include "platform/ombr_thread_internal.h"

namespace {

struct FileList {
    ombr_file *head;
    ombr_file *end;
    uint32_t count;
};

// Written by ombr_fs_option_set from any thread, read under the section.
std::atomic<uint32_t> g_fs_max_file_handles{0};
uint32_t g_fs_num_file_handles = 0;
// The manager's section: a re-entrant lock, held for a few list operations
// at a time. A recursive mutex costs one lock and one unlock per entry.
pthread_mutex_t s_fs_mgr_cs;
bool s_fs_mgr_cs_up = false;
ombr_event_t s_fs_mgr_event = nullptr;
FileList s_fs_live_list = {};
FileList s_fs_open_list = {};
fs_marker_record *s_fs_marker_lists = nullptr;
fs_marker_record *s_fs_global_marker = nullptr;
char s_fs_option_text[32];

uint32_t section_enter() {
    if (!s_fs_mgr_cs_up) return OMBR_THREAD_ERR_INVALID_ARG;
    return ombr::thread_map_error(pthread_mutex_lock(&s_fs_mgr_cs));
}

void section_leave() { pthread_mutex_unlock(&s_fs_mgr_cs); }

int section_create() {
    pthread_mutexattr_t attr;
    int rc = pthread_mutexattr_init(&attr);
    if (rc != 0) return rc;
    rc = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    if (rc == 0) rc = pthread_mutex_init(&s_fs_mgr_cs, &attr);
    pthread_mutexattr_destroy(&attr);
    return rc;
}

void list_append(FileList &list, FsList which, ombr_file *file) {
    file->next = nullptr;
    file->prev = list.end;
    if (list.end)
        list.end->next = file;
    else
        list.head = file;
    list.end = file;
    file->list = which;
    list.count += 1;
}

// Removes the file if it is on this list; a file on no list is left alone.
void list_remove(FileList &list, FsList which, ombr_file *file) {
    if (file->list != which) return;
    if (file->prev)
        file->prev->next = file->next;
    else
        list.head = file->next;
    if (file->next)
        file->next->prev = file->prev;
    else
        list.end = file->prev;
    file->next = file->prev = nullptr;
    file->list = FsList::none;
    list.count -= 1;
}

ombr_file *list_pop_front(FileList &list, FsList which) {
    ombr_file *file = list.head;
    if (file) list_remove(list, which, file);
    return file;
}

bool at_limit() {
    const uint32_t max = g_fs_max_file_handles.load(std::memory_order_relaxed);
    return max != 0 && g_fs_num_file_handles >= max;
}

void signal_slot() { ombr_thread_event_signal(s_fs_mgr_event); }

// Called inside the section. Leaves it, waits for a descriptor to become
// free and enters again; the first wait happens whatever the state, and the
// wait repeats while no idle file has a descriptor and the count is still
// at the limit. A failure to enter again leaves the caller outside.
uint32_t wait_for_slot() {
    do {
        section_leave();
        ombr_thread_event_wait(s_fs_mgr_event, OMBR_THREAD_WAIT_INFINITE);
        uint32_t status = section_enter();
        if (status != 0) {
            signal_slot();  // pass the wake-up on
            return status;
        }
    } while (s_fs_live_list.count == 0 && at_limit());
    return 0;
}

// Takes the descriptor of the least recently released idle file. The slot
// passes to the caller, so the handle count does not change.
uint32_t evict() {
    ombr_file *victim = list_pop_front(s_fs_live_list, FsList::live);
    if (!victim) return OMBR_FS_ERR_TOO_MANY_FILES;
    uint32_t status = ombr::fs_close_internal(victim);
    if (status != 0) return status;  // the victim stays on no list
    victim->has_descriptor = 0;
    list_append(s_fs_open_list, FsList::open, victim);
    return 0;
}

void add_marker_entry(fs_marker_record *marker, ombr_file *file) {
    auto *entry = static_cast<fs_marker_entry *>(ombr_memory_alloc(sizeof(fs_marker_entry)));
    if (!entry) return;
    ombr_memory_memset(entry, 0, sizeof *entry);
    entry->file_name = ombr_string_strdup(file->name());
    if (!entry->file_name) {
        ombr_memory_free(entry);
        return;
    }
    entry->marker_id = marker->id;
    entry->thread_id = file->opener;
    entry->open = 1;
    entry->file = file;
    entry->marker = marker;
    entry->next_in_file = file->markers;
    if (file->markers) file->markers->prev_in_file = entry;
    file->markers = entry;
    entry->next_in_marker = marker->entries;
    if (marker->entries) marker->entries->prev_in_marker = entry;
    marker->entries = entry;
}

// Every marker of the opening thread, and the global marker, watches the
// new file.
void add_marker_entries(ombr_file *file) {
    bool global_listed = false;
    for (fs_marker_record *m = s_fs_marker_lists; m; m = m->next) {
        if (m == s_fs_global_marker) global_listed = true;
        if (m == s_fs_global_marker || pthread_equal(m->thread_id, file->opener)) add_marker_entry(m, file);
    }
    if (s_fs_global_marker && !global_listed) add_marker_entry(s_fs_global_marker, file);
}

// Takes a descriptor slot for a file in hand: one more use, and off the
// list it waited on.
void take_use(ombr_file *file) {
    if (file->use_count == 0) {
        list_remove(s_fs_live_list, FsList::live, file);
        list_remove(s_fs_open_list, FsList::open, file);
    }
    file->use_count += 1;
}

}  // namespace

namespace ombr::fsmgr {

uint32_t init() {
    uint32_t status = ombr::thread_map_error(section_create());
    if (status != 0) return status;
    status = ombr_thread_event_create(&s_fs_mgr_event, 0, 0);
    if (status == 0x9002000Bu) status = 0;
    if (status != 0) {
        pthread_mutex_destroy(&s_fs_mgr_cs);
        return status;
    }
    s_fs_mgr_cs_up = true;
    return 0;
}

uint32_t shutdown() {
    ombr_fs_marker_end(s_fs_global_marker);
    s_fs_global_marker = nullptr;
    ombr_fs_marker_end(s_fs_marker_lists);
    s_fs_marker_lists = nullptr;
    if (s_fs_mgr_cs_up) pthread_mutex_destroy(&s_fs_mgr_cs);
    s_fs_mgr_cs_up = false;
    ombr_thread_event_delete(s_fs_mgr_event);
    s_fs_mgr_event = nullptr;
    return 0;
}

uint32_t new_fd(ombr_file *file) {
    uint32_t status = section_enter();
    if (status != 0) return status;
    file->opener = pthread_self();
    bool slot_passed = false;
    if (at_limit()) {
        status = wait_for_slot();
        if (status != 0) return status;
        if (at_limit()) {
            status = evict();
            slot_passed = true;
        }
    }
    if (status == 0) {
        file->has_descriptor = 1;
        file->use_count = 1;
        if (!slot_passed) g_fs_num_file_handles += 1;
        add_marker_entries(file);
    }
    section_leave();
    if (status != 0) signal_slot();  // the wake-up this caller used goes on
    return status;
}

uint32_t acquire_fd(ombr_file *file) {
    uint32_t status = section_enter();
    if (status != 0) return status;
    if (!file->has_descriptor) {
        status = wait_for_slot();
        if (status != 0) return status;
    }
    // Another user of the same file may have brought its descriptor back
    // while this one waited.
    if (file->has_descriptor) {
        take_use(file);
        section_leave();
        return 0;
    }
    const bool new_slot = !at_limit();
    if (!new_slot) status = evict();
    if (status == 0) {
        status = fs_reopen_internal(file);
        if (status == 0) {
            file->has_descriptor = 1;
            take_use(file);
            if (new_slot) g_fs_num_file_handles += 1;
        } else if (!new_slot) {
            g_fs_num_file_handles -= 1;  // the evicted slot is free after all
        }
    }
    section_leave();
    if (status != 0) signal_slot();
    return status;
}

uint32_t release_fd(ombr_file *file) {
    if (section_enter() == 0) {
        if (file->use_count > 0) file->use_count -= 1;
        if (file->use_count == 0) {
            if (file->has_descriptor)
                list_append(s_fs_live_list, FsList::live, file);
            else
                list_append(s_fs_open_list, FsList::open, file);
        }
        section_leave();
    }
    signal_slot();
    return 0;
}

uint32_t close_fd(ombr_file *file) {
    if (section_enter() != 0) return 0;
    for (fs_marker_entry *e = file->markers; e; e = e->next_in_file) {
        e->closed = 1;
        e->file = nullptr;
    }
    const bool had_descriptor = file->has_descriptor != 0;
    if (had_descriptor) {
        list_remove(s_fs_live_list, FsList::live, file);
        g_fs_num_file_handles -= 1;
    } else {
        list_remove(s_fs_open_list, FsList::open, file);
    }
    section_leave();
    if (had_descriptor) signal_slot();
    return 0;
}

// Entries of the file's markers, from the head up to the first of another
// thread, count the traffic.
uint32_t update_metrics(ombr_file *file, uint32_t bytes_read, uint32_t bytes_written, uint32_t seeks) {
    // The file's entry list is fixed at open; with no marker there is
    // nothing to count and no need to enter.
    if (!file->markers) return 0;
    const pthread_t self = pthread_self();
    uint32_t status = section_enter();
    if (status != 0) return status;
    for (fs_marker_entry *e = file->markers; e && pthread_equal(e->thread_id, self); e = e->next_in_file) {
        if (bytes_written != 0) {
            e->writes += 1;
            e->bytes_written += bytes_written;
            if (bytes_written > e->largest_write) e->largest_write = bytes_written;
        }
        if (bytes_read != 0) {
            e->reads += 1;
            e->bytes_read += bytes_read;
            if (bytes_read > e->largest_read) e->largest_read = bytes_read;
        }
        e->touched = 1;
        e->seeks += seeks;
    }
    section_leave();
    return 0;
}

uint32_t enter() { return section_enter(); }
void leave() { section_leave(); }

Counts counts() {
    Counts c{};
    if (section_enter() != 0) return c;
    c = Counts{g_fs_num_file_handles, s_fs_live_list.count, s_fs_open_list.count};
    section_leave();
    return c;
}

fs_marker_record *exchange_global_marker(fs_marker_record *marker) {
    section_enter();
    fs_marker_record *previous = s_fs_global_marker;
    s_fs_global_marker = marker;
    section_leave();
    return previous;
}

}  // namespace ombr::fsmgr

// ---- Options ------------------------------------------------------------------------

OMBR_API uint32_t ombr_fs_option_set(const char *key, const char *value) {
    if (!key || !value || !ombr_string_equal(key, OMBR_FS_OPTION_MAX_HANDLES, 0)) return OMBR_FS_ERR_INVALID_ARG;
    g_fs_max_file_handles.store(ombr_string_atou32(value), std::memory_order_relaxed);
    return 0;
}

OMBR_API uint32_t ombr_fs_option_get(const char *key, const char **out_value) {
    if (!key || !out_value || !ombr_string_equal(key, OMBR_FS_OPTION_MAX_HANDLES, 0)) return OMBR_FS_ERR_INVALID_ARG;
    ombr_string_u32toa(g_fs_max_file_handles.load(std::memory_order_relaxed), s_fs_option_text,
                       sizeof s_fs_option_text);
    *out_value = s_fs_option_text;
    return 0;
}
