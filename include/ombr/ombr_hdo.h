/*
 * HDO, the hierarchical data object: reference-counted trees of nodes with
 * attributes (name to text), typed values (several under one name) and
 * children (several under one key), copy-on-write values, the HPath query
 * language and the bridge to and from XML.
 *
 * A tree lives and dies as one: a reference on any node keeps every node of
 * its tree valid, and releasing the last reference frees the whole tree.
 * Keys, names and attribute names compare without regard to ASCII case.
 *
 * All functions return a status word, 0 on success; outputs are written on
 * success only. Functions marked "Ref" add a reference to what they hand
 * out, which the caller gives back with ombr_hdo_release (nodes) or
 * ombr_hdo_value_release (value handles). Texts handed out stay owned by
 * the tree. The HDO package (ombr_hdo_initialize) must be up for the
 * functions that create nodes or values, look children or values up, and
 * convert XML.
 */
#ifndef OMBR_HDO_H
#define OMBR_HDO_H

#include "ombr/ombr_base.h"
#include "ombr/ombr_iostream.h"

OMBR_BEGIN_DECLS

/* ---- Statuses ------------------------------------------------------------- */

#define OMBR_HDO_INVALID_ARG 0x90110001u     /* null or self-referring argument */
#define OMBR_HDO_NO_MEMORY 0x90110002u
#define OMBR_HDO_NOT_IN_PARENT 0x90110003u   /* child not where its parent link says; index 0 in HPath */
#define OMBR_HDO_NOT_FOUND 0x10110003u       /* soft: no table, no entry, end of enumeration */
#define OMBR_HDO_REFUSED 0x90110005u         /* read-only node, single value present, shared attribute */
#define OMBR_HDO_NOT_INITIALIZED 0x90110007u
#define OMBR_HDO_BUFFER_TOO_SMALL 0x90110008u
#define OMBR_HDO_BAD_MAGIC 0x90110321u
#define OMBR_HDO_CORRUPT_ENTRY 0x90110360u
#define OMBR_HDO_WRONG_TYPE 0x90110362u      /* getdata of another type than the value has */
#define OMBR_HDO_SHARED_NOT_FOUND 0x90110364u
#define OMBR_HDO_BAD_PATH 0x90110366u        /* malformed path, or no result of the kind asked for */
#define OMBR_HDO_LIMIT 0x90110367u           /* beyond one of the limits below */

/* Deepest nesting of a tree (levels below its root) and so of an XML
 * document read into a tree. */
#define OMBR_HDO_MAX_DEPTH 512u
/* Deepest nesting of steps, predicates and indexes in an HPath evaluation,
 * and the most steps one query may evaluate. */
#define OMBR_HDO_MAX_PATH_DEPTH 1024u
#define OMBR_HDO_MAX_PATH_WORK 0x01000000u

/* ---- Flags ------------------------------------------------------------------- */

#define OMBR_HDO_HIDDEN 0x10u   /* left out of enumerations and totals */
#define OMBR_HDO_REPLACE 0x20u  /* the first entry under the name goes first */
#define OMBR_HDO_READONLY 0x40u /* node flag: no new values, no changes of value data */
#define OMBR_HDO_SINGLE 0x80u   /* node flag: a replacing add is refused if the name is present */

/* ---- Value types --------------------------------------------------------------- */

#define OMBR_HDO_VALUE_NONE 0u
#define OMBR_HDO_VALUE_STRING 1u
#define OMBR_HDO_VALUE_INT 2u
#define OMBR_HDO_VALUE_BINARY 3u
#define OMBR_HDO_VALUE_POINTER 4u

typedef struct hdo_node *ombr_hdo_t;
typedef struct hdo_value_handle *ombr_hdo_value_t;

/* Frees the data of a pointer value, called once with data and size. */
typedef void (*ombr_hdo_release_fn)(void *data, uint32_t size);

/* ---- Package frame ----------------------------------------------------------- */
/* ombr_hdo_initialize, _shutdown, _initchecks, _get_version and
 * _get_build_date are declared in ombr_base.h. */

/* ---- Nodes ------------------------------------------------------------------- */

OMBR_API uint32_t ombr_hdo_create(ombr_hdo_t *out_node);
/* Destroys all values and children at once, whatever references they hold. */
OMBR_API uint32_t ombr_hdo_clear(ombr_hdo_t node);
OMBR_API uint32_t ombr_hdo_addref(ombr_hdo_t node);
OMBR_API uint32_t ombr_hdo_release(ombr_hdo_t node);
/* flags = (flags & ~mask) | (bits & mask), on the node and all descendants. */
OMBR_API uint32_t ombr_hdo_set_flags(ombr_hdo_t node, uint32_t mask, uint32_t bits);

OMBR_API uint32_t ombr_hdo_attribute_set(ombr_hdo_t node, const char *name, const char *text);
OMBR_API uint32_t ombr_hdo_attribute_get(ombr_hdo_t node, const char *name, const char **out_text);
OMBR_API uint32_t ombr_hdo_attribute_delete(ombr_hdo_t node, const char *name);
OMBR_API uint32_t ombr_hdo_attribute_count(ombr_hdo_t node, uint32_t *out_count);
OMBR_API uint32_t ombr_hdo_attribute_enum(ombr_hdo_t node, uint32_t index, const char **out_name,
                                          const char **out_text);
OMBR_API uint32_t ombr_hdo_attribute_clearall(ombr_hdo_t node);

/* Attaches child under key with flags (which replace the child's own flag
 * word). The caller's reference on the child stays its own. A child that
 * already belongs to a tree stays there: a deep copy of it is attached. */
OMBR_API uint32_t ombr_hdo_child_set(ombr_hdo_t parent, const char *key, ombr_hdo_t child, uint32_t flags);
/* Ref. */
OMBR_API uint32_t ombr_hdo_child_get(ombr_hdo_t node, const char *key, uint32_t ordinal, ombr_hdo_t *out_child);
/* With an output the child comes back (Ref) as the root of its own tree. */
OMBR_API uint32_t ombr_hdo_child_remove(ombr_hdo_t node, const char *key, uint32_t ordinal, ombr_hdo_t *out_child);
/* Null or empty key: all children less the hidden ones; a key: its entries. */
OMBR_API uint32_t ombr_hdo_child_count(ombr_hdo_t node, const char *key, uint32_t *out_count);
/* index is a raw position that skips forward over hidden children. Ref if
 * out_child is given. */
OMBR_API uint32_t ombr_hdo_child_enum(ombr_hdo_t node, uint32_t index, const char **out_key, ombr_hdo_t *out_child);
OMBR_API uint32_t ombr_hdo_child_detach(ombr_hdo_t child);
/* Ref. A root gives OMBR_HDO_NOT_FOUND. */
OMBR_API uint32_t ombr_hdo_parent_get(ombr_hdo_t node, ombr_hdo_t *out_parent);

/* ---- Values ---------------------------------------------------------------------
 * Value handles keep their node's tree and their value alive until
 * ombr_hdo_value_release. A value may be shared by several nodes (after a
 * copy); a write through a handle to a shared value splits it, so the other
 * holders keep the old data. */

OMBR_API uint32_t ombr_hdo_new_value(ombr_hdo_t node, const char *name, uint32_t flags, ombr_hdo_value_t *out_handle);
OMBR_API uint32_t ombr_hdo_new_value_string(ombr_hdo_t node, const char *name, const char *text, uint32_t flags,
                                            ombr_hdo_value_t *out_handle);
OMBR_API uint32_t ombr_hdo_new_value_int(ombr_hdo_t node, const char *name, int32_t number, uint32_t flags,
                                         ombr_hdo_value_t *out_handle);
OMBR_API uint32_t ombr_hdo_new_value_uint(ombr_hdo_t node, const char *name, uint32_t number, uint32_t flags,
                                          ombr_hdo_value_t *out_handle);
OMBR_API uint32_t ombr_hdo_new_value_binary(ombr_hdo_t node, const char *name, const void *bytes, uint32_t size,
                                            uint32_t flags, ombr_hdo_value_t *out_handle);
OMBR_API uint32_t ombr_hdo_new_value_pointer(ombr_hdo_t node, const char *name, void *pointer, uint32_t size,
                                             uint32_t flags, ombr_hdo_release_fn release,
                                             ombr_hdo_value_t *out_handle);
/* Adds the handle's value to node under key (shared, not copied). */
OMBR_API uint32_t ombr_hdo_value_set(ombr_hdo_t node, const char *key, ombr_hdo_value_t handle);
/* Null or empty name: ordinal is a position in all values, hidden ones included. */
OMBR_API uint32_t ombr_hdo_value_get(ombr_hdo_t node, const char *name, uint32_t ordinal, ombr_hdo_value_t *out_handle);
OMBR_API uint32_t ombr_hdo_value_remove(ombr_hdo_t node, const char *name, uint32_t ordinal,
                                        ombr_hdo_value_t *out_handle);
OMBR_API uint32_t ombr_hdo_value_count(ombr_hdo_t node, const char *name, uint32_t *out_count);
/* index counts visible values. */
OMBR_API uint32_t ombr_hdo_value_enum(ombr_hdo_t node, uint32_t index, const char **out_name,
                                      ombr_hdo_value_t *out_handle);
OMBR_API uint32_t ombr_hdo_value_release(ombr_hdo_value_t handle);

OMBR_API uint32_t ombr_hdo_value_setdata_string(ombr_hdo_value_t handle, const char *text);
OMBR_API uint32_t ombr_hdo_value_setdata_int(ombr_hdo_value_t handle, int32_t number);
OMBR_API uint32_t ombr_hdo_value_setdata_uint(ombr_hdo_value_t handle, uint32_t number);
OMBR_API uint32_t ombr_hdo_value_setdata_binary(ombr_hdo_value_t handle, const void *bytes, uint32_t size);
OMBR_API uint32_t ombr_hdo_value_setdata_pointer(ombr_hdo_value_t handle, void *pointer, uint32_t size,
                                                 ombr_hdo_release_fn release);
OMBR_API uint32_t ombr_hdo_value_getdata_string(ombr_hdo_value_t handle, const char **out_text);
OMBR_API uint32_t ombr_hdo_value_getdata_int(ombr_hdo_value_t handle, int32_t *out_number);
OMBR_API uint32_t ombr_hdo_value_getdata_uint(ombr_hdo_value_t handle, uint32_t *out_number);
OMBR_API uint32_t ombr_hdo_value_getdata_binary(ombr_hdo_value_t handle, const void **out_bytes, uint32_t *out_size);
OMBR_API uint32_t ombr_hdo_value_getdata_pointer(ombr_hdo_value_t handle, void **out_pointer, uint32_t *out_size);
OMBR_API uint32_t ombr_hdo_value_getname(ombr_hdo_value_t handle, const char **out_name);
OMBR_API uint32_t ombr_hdo_value_gettype(ombr_hdo_value_t handle, uint32_t *out_type);

OMBR_API uint32_t ombr_hdo_value_attribute_set(ombr_hdo_value_t handle, const char *name, const char *text);
OMBR_API uint32_t ombr_hdo_value_attribute_get(ombr_hdo_value_t handle, const char *name, const char **out_text);
OMBR_API uint32_t ombr_hdo_value_attribute_delete(ombr_hdo_value_t handle, const char *name);
OMBR_API uint32_t ombr_hdo_value_attribute_count(ombr_hdo_value_t handle, uint32_t *out_count);
OMBR_API uint32_t ombr_hdo_value_attribute_enum(ombr_hdo_value_t handle, uint32_t index, const char **out_name,
                                                const char **out_text);

/* ---- Copy ------------------------------------------------------------------------ */

/* A new tree with the node's visible values, shared with the source; with
 * deep also its attributes and, recursively, its visible children. Flags
 * are not copied. A null node gives success and no output. */
OMBR_API uint32_t ombr_hdo_copy(ombr_hdo_t node, ombr_hdo_t *out_node, uint8_t deep);

/* ---- HPath ------------------------------------------------------------------------
 * Steps separated by "/": name (children, then values), name(expr) (1-based
 * index), $name (values), @name (attribute), %name (value of the parameter
 * node), 'text' or "text" and non-zero numbers (literals), [left] and
 * [left=right] (predicates; '*' matches anything, '!' absence), !step
 * (negation), alternatives with "|" and "&". A leading "/" goes back up
 * to the node the query started on. ordinal picks the ordinal-th match of
 * the whole path, counted across all parents.
 * A path that is only a literal succeeds, but its text is freed before the
 * call returns and must not be read. */

OMBR_API uint32_t ombr_hdo_get_count_by_hpath(ombr_hdo_t node, const char *path, ombr_hdo_t params,
                                              uint32_t *out_count);
OMBR_API uint32_t ombr_hdo_get_string_by_hpath(ombr_hdo_t node, const char *path, ombr_hdo_t params,
                                               uint32_t ordinal, const char **out_text);
/* The handle's node is node, not the node that holds the value. */
OMBR_API uint32_t ombr_hdo_get_value_by_hpath(ombr_hdo_t node, const char *path, ombr_hdo_t params,
                                              uint32_t ordinal, ombr_hdo_value_t *out_handle);
/* Ref. */
OMBR_API uint32_t ombr_hdo_get_child_by_hpath(ombr_hdo_t node, const char *path, ombr_hdo_t params,
                                              uint32_t ordinal, ombr_hdo_t *out_child);

/* ---- XML bridge ---------------------------------------------------------------------
 * An element that holds text becomes a string value of the current node,
 * an element that holds elements (or nothing) a child node; attributes go
 * to the node or value. Writing gives a node's values before its children;
 * pointer values and values without data are left out, binary values
 * become CDATA. header asks for the XML declaration, pretty for
 * indentation and line ends. */

OMBR_API uint32_t ombr_hdo_to_xml(ombr_hdo_t node, const char *root_name, uint8_t header, uint8_t pretty,
                                  char **out_text);
OMBR_API uint32_t ombr_hdo_to_xml_buf(ombr_hdo_t node, const char *root_name, uint8_t header, uint8_t pretty,
                                      char **out_text, uint32_t *out_length);
/* A new tree (Ref); the root element's name, if asked for, is a new text
 * for ombr_string_free (null if no element came). A stream may hold more
 * after the document: what was not read stays readable. */
OMBR_API uint32_t ombr_hdo_from_xml(const char *text, ombr_hdo_t *out_node, char **out_root_name);
OMBR_API uint32_t ombr_hdo_from_xml_stream(ombr_iostream_t stream, ombr_hdo_t *out_node, char **out_root_name);
OMBR_API uint32_t ombr_hdo_free_xml(char *text);
OMBR_API uint32_t ombr_hdo_free_xml_buf(char *text);

OMBR_END_DECLS

#endif
