/*
 * The shared vocabulary of the module, the manager and the lookup providers:
 * every key text, number and flag that crosses one of their boundaries is
 * spelt here once, and used by name everywhere else.
 *
 * Grammar of the result-object keys: a value key begins with "zelto_val_" or
 * "_sdkmgr_val_"; a child key is a context name ("zelto_ctx_album") followed
 * by "!" and an optional selector ("zelto_ctx_track!number",
 * "zelto_ctx_title!off").
 */
#ifndef ZELTO_KEYS_H
#define ZELTO_KEYS_H

#include <stdint.h>

/* ---- Service tables, fetched from the manager by name ----------------------- */

#define ZELTO_SERVICE_ERRORINFO "_zelto_errorinfo_interface"
#define ZELTO_SERVICE_HANDLEMANAGER "_zelto_handlemanager_interface"
#define ZELTO_SERVICE_USERINFO "_zelto_userinfo_interface"
#define ZELTO_SERVICE_RVO "_zelto_rvo_interface"
#define ZELTO_SERVICE_LISTS "_zelto_listmanager_interface"
#define ZELTO_SERVICE_SERIALIZATION "_zelto_serialization_interface"
#define ZELTO_SERVICE_DSP "_zelto_dsp_interface" /* optional: signal processing */
#define ZELTO_SERVICE_LOOKUP "_zelto_lookup_interface" /* fetched with a provider mode */

/* Provider modes of interface_get for ZELTO_SERVICE_LOOKUP. */
#define ZELTO_PROVIDER_MODE_ONLINE 1u
#define ZELTO_PROVIDER_MODE_LOCAL 2u

/* ---- Users ---------------------------------------------------------------------- */

/* User option naming the lookup mode of the user's queries. */
#define ZELTO_USEROPTION_LOOKUP_MODE "zelto_useroption_lookup_mode"

/* Lookup modes (values of ZELTO_USEROPTION_LOOKUP_MODE and of
 * ZELTO_CANTRIX_OPTION_LOOKUP_MODE, compared with case). */
#define ZELTO_LOOKUPMODE_ONLINE "zelto_lookupmode_online"                 /* provider mode 1 */
#define ZELTO_LOOKUPMODE_ONLINE_NOCACHE "zelto_lookupmode_online_nocache" /* mode 1, cache not read */
#define ZELTO_LOOKUPMODE_LOCAL "zelto_lookupmode_local"                   /* provider mode 2 */

/* ---- Query options (keys compare without regard to ASCII case) ---------------- */

#define ZELTO_CANTRIX_OPTION_LOOKUP_MODE "zelto_cantrix_option_lookupmode"   /* a ZELTO_LOOKUPMODE_* text */
#define ZELTO_CANTRIX_OPTION_RANGE_START "zelto_cantrix_result_range_start" /* first result, from 1; default "1" */
#define ZELTO_CANTRIX_OPTION_RANGE_SIZE "zelto_cantrix_result_range_size"   /* results wanted; unset means 10 */
#define ZELTO_CANTRIX_OPTION_PREFERRED_LANG "zelto_cantrix_preferred_lang"  /* a language the list service knows */
#define ZELTO_CANTRIX_OPTION_ENABLE_CLASSICAL "zelto_cantrix_option_enable_classical" /* ZELTO_DATA_CLASSICAL */
#define ZELTO_CANTRIX_OPTION_ENABLE_GLOBALIDS "zelto_cantrix_option_enable_globalids" /* ZELTO_DATA_GLOBALIDS */
#define ZELTO_CANTRIX_OPTION_ENABLE_DSP "zelto_cantrix_option_enable_dsp"             /* ZELTO_DATA_PLAYLIST */
#define ZELTO_CANTRIX_OPTION_ENABLE_SONIC "zelto_cantrix_option_enable_sonic"         /* ZELTO_DATA_PLAYLIST */
#define ZELTO_CANTRIX_OPTION_ENABLE_PLAYLIST "zelto_cantrix_option_enable_playlist"   /* ZELTO_DATA_PLAYLIST */
#define ZELTO_CANTRIX_OPTION_ENABLE_LINK "zelto_cantrix_option_enable_link"           /* ZELTO_DATA_LINK */
#define ZELTO_CANTRIX_OPTION_ENABLE_AIM "zelto_query_option_enable_aim"               /* ZELTO_DATA_AIM */
#define ZELTO_CANTRIX_OPTION_SINGLE_RESULT "zelto_cantrix_single_result"              /* keep the best result only */
#define ZELTO_CANTRIX_OPTION_PREFER_XID "zelto_cantrix_result_prefer_xid"
#define ZELTO_CANTRIX_OPTION_PREFER_COVERART "zelto_cantrix_result_prefer_coverart"
#define ZELTO_CANTRIX_OPTION_REVISION_CHECK "zelto_cantrix_option_revision_check" /* object lookups: newer only */
#define ZELTO_CANTRIX_OPTION_SEARCH_PRESET "zelto_cantrix_option_search_preset"   /* write-only */
#define ZELTO_CANTRIX_OPTION_OUTPUT "zelto_cantrix_option_output"                 /* write-only */
#define ZELTO_CANTRIX_OPTION_ADDITIONAL_CREDITS "zelto_cantrix_option_additional_credits" /* write-only */

/* ---- Text fields of a query (compared exactly, with case) ------------------------ */

#define ZELTO_CANTRIX_FIELD_ARTIST "zelto_cantrix_field_artist"
#define ZELTO_CANTRIX_FIELD_ALBUM "zelto_cantrix_field_album"
#define ZELTO_CANTRIX_FIELD_TITLE "zelto_cantrix_field_title"
#define ZELTO_CANTRIX_FIELD_COMPOSER "zelto_cantrix_field_composer"
#define ZELTO_CANTRIX_FIELD_FRAGMENT "zelto_cantrix_field_fragment"
#define ZELTO_CANTRIX_FIELD_ALBUM_ARTIST "zelto_cantrix_field_album_artist"
#define ZELTO_CANTRIX_FIELD_TRACK_ARTIST "zelto_cantrix_field_track_artist"
#define ZELTO_CANTRIX_FIELD_LYRIC "zelto_cantrix_field_lyric"

/* Fingerprint kinds. */
#define ZELTO_CANTRIX_FP_ZFPX "zelto_cantrix_fp_zfpx"
#define ZELTO_CANTRIX_FP_3STREAM "zelto_cantrix_fp_3stream"
#define ZELTO_CANTRIX_FP_6STREAM "zelto_cantrix_fp_6stream"
#define ZELTO_CANTRIX_FP_TVX "zelto_cantrix_fp_tvx"
#define ZELTO_CANTRIX_FP_FILE "zelto_cantrix_fp_file"

/* Keys of dsp_generator_info: decimal texts with the number of blocks that
 * a useful and a full-length fingerprint need. */
#define ZELTO_DSP_INFO_MINBLOCKREQ "zelto_dsp_info_minblockreq"
#define ZELTO_DSP_INFO_MAXBLOCKREQ "zelto_dsp_info_maxblockreq"

/* ---- Data flags (a query's data_flags word; tree values may require them) ---------- */

/* A data-flags word: an OR of the bits below. */
typedef uint32_t zelto_data_flags;

#define ZELTO_DATA_LINK 0x400000u
#define ZELTO_DATA_GLOBALIDS 0x800000u
#define ZELTO_DATA_PLAYLIST 0x1000000u
#define ZELTO_DATA_CLASSICAL 0x4000000u
#define ZELTO_DATA_AIM 0x8000000u

/* ---- Requests to a lookup provider ----------------------------------------------- */

/* Lookup types of lookup_request_add. */
#define ZELTO_LOOKUP_TYPE_ALBUM "zelto_lookup_type_album"
#define ZELTO_LOOKUP_TYPE_TRACK "zelto_lookup_type_track"
#define ZELTO_LOOKUP_TYPE_TEXT_MATCH "zelto_lookup_type_text_match"
#define ZELTO_LOOKUP_TYPE_LYRIC "zelto_lookup_type_lyric"

/* Data keys of lookup_request_set_data. */
#define ZELTO_LOOKUP_DATA_TOC "zelto_lookup_data_toc"                   /* TOC text, "150 14672 27367 41225" */
#define ZELTO_LOOKUP_DATA_TUI "zelto_lookup_data_tui"                   /* identifier of an album or track */
#define ZELTO_LOOKUP_DATA_TUI_TAG "zelto_lookup_data_tui_tag"
#define ZELTO_LOOKUP_DATA_MUI "zelto_lookup_data_mui"                   /* media identifier of a disc */
#define ZELTO_LOOKUP_DATA_MEDIA_ID "zelto_lookup_data_media_id"
#define ZELTO_LOOKUP_DATA_TRACK_MATCHED "zelto_lookup_data_track_matched" /* album position of a track */
#define ZELTO_LOOKUP_DATA_REV "zelto_lookup_data_rev"                   /* revision the caller holds */
#define ZELTO_LOOKUP_DATA_TVX_QUERYDATA "zelto_lookup_data_tvx_querydata"
#define ZELTO_LOOKUP_DATA_FPX_QUERYDATA "zelto_lookup_data_fpx_querydata"
#define ZELTO_LOOKUP_DATA_FPX_ALGNAME "zelto_lookup_data_fpx_algname"
#define ZELTO_LOOKUP_DATA_FPX_ALGVER "zelto_lookup_data_fpx_algver"
#define ZELTO_LOOKUP_DATA_ALBUM_TITLE "zelto_lookup_data_album_title"
#define ZELTO_LOOKUP_DATA_ALBUM_ARTIST "zelto_lookup_data_album_artist"
#define ZELTO_LOOKUP_DATA_TRACK_TITLE "zelto_lookup_data_track_title"
#define ZELTO_LOOKUP_DATA_TRACK_ARTIST "zelto_lookup_data_track_artist"
#define ZELTO_LOOKUP_DATA_ARTIST "zelto_lookup_data_artist"
#define ZELTO_LOOKUP_DATA_COMPOSER "zelto_lookup_data_composer"
#define ZELTO_LOOKUP_DATA_LYRIC_TITLE "zelto_lookup_data_lyric_title"
#define ZELTO_LOOKUP_DATA_LYRIC_ARTIST "zelto_lookup_data_lyric_artist"
#define ZELTO_LOOKUP_DATA_LYRIC_FRAGMENT "zelto_lookup_data_lyric_fragment"
#define ZELTO_LOOKUP_DATA_RANGE_START "zelto_lookup_data_result_range_start" /* from 1, inclusive */
#define ZELTO_LOOKUP_DATA_RANGE_END "zelto_lookup_data_result_range_end"     /* inclusive */

/* Option keys of lookup_request_set_option. */
#define ZELTO_LOOKUP_OPTION_LINK "zelto_lookup_option_link"           /* ZELTO_DATA_LINK */
#define ZELTO_LOOKUP_OPTION_GLOBALIDS "zelto_lookup_option_globalids" /* ZELTO_DATA_GLOBALIDS */
#define ZELTO_LOOKUP_OPTION_CLASS "zelto_lookup_option_class"         /* ZELTO_DATA_CLASSICAL */
#define ZELTO_LOOKUP_OPTION_SONIC "zelto_lookup_option_sonic"         /* ZELTO_DATA_PLAYLIST, with the next */
#define ZELTO_LOOKUP_OPTION_PLAYLIST "zelto_lookup_option_playlist"   /* ZELTO_DATA_PLAYLIST */
#define ZELTO_LOOKUP_OPTION_AIM "zelto_lookup_option_aim"             /* ZELTO_DATA_AIM */
#define ZELTO_LOOKUP_OPTION_CACHE_USAGE "zelto_lookup_option_cache_usage"
#define ZELTO_LOOKUP_OPTION_VALUE_CACHE_SKIP_READ "zelto_lookup_option_value_cache_skip_read"
#define ZELTO_LOOKUP_OPTION_LANGUAGE "zelto_lookup_option_language"
#define ZELTO_LOOKUP_OPTION_ADDITIONAL_CREDITS "zelto_lookup_option_additionalcredits"
#define ZELTO_LOOKUP_OPTION_OUTPUT "zelto_lookup_option_output"
#define ZELTO_LOOKUP_OPTION_RESULT_PREFERCOVER "zelto_lookup_option_result_prefercover"
#define ZELTO_LOOKUP_OPTION_RESULT_SINGLE "zelto_lookup_option_result_single"
#define ZELTO_LOOKUP_OPTION_RESULT_PREFERXID "zelto_lookup_option_result_preferxid"
#define ZELTO_LOOKUP_OPTION_PRESET "zelto_lookup_option_preset"

/* Status records a provider sends to the request callback: the kind that
 * marks counters for the application, and the event codes. */
#define ZELTO_LOOKUP_EVENT_KIND_COUNTERS 16u
#define ZELTO_LOOKUP_EVENT_STARTED 1u   /* execute began */
#define ZELTO_LOOKUP_EVENT_SENT 8u      /* the query went to the data source */
#define ZELTO_LOOKUP_EVENT_FOUND 9u     /* value1 hits found, value2 hits in the asked range */
#define ZELTO_LOOKUP_EVENT_BUILDING 10u /* value1 results built, value2 results to build */
#define ZELTO_LOOKUP_EVENT_READY 11u    /* the answer is ready */
#define ZELTO_LOOKUP_EVENT_DONE 12u     /* execute is over */
#define ZELTO_LOOKUP_EVENT_ERROR 13u    /* value1 the status, value2 points to the message */

/* ---- Answers of a lookup provider -------------------------------------------------- */

/* Values of ZELTO_VAL_RESPONSE_CODE. */
#define ZELTO_RESULT_NO_MATCHES "zelto_result_no_matches"
#define ZELTO_RESULT_SINGLE_MATCH "zelto_result_single_match"
#define ZELTO_RESULT_FUZZY_MATCHES "zelto_result_fuzzy_matches"
#define ZELTO_RESULT_MULTIEXACT_MATCHES "zelto_result_multiexact_matches"
#define ZELTO_RESULT_NO_NEW_REV "zelto_result_no_new_rev" /* revision check: the caller's copy is current */

/* Locale group of every result object. */
#define ZELTO_LOCALE_GROUP_MUSIC "zelto_locale_music"

/* Prefixes of the key grammar. */
#define ZELTO_VAL_PREFIX "zelto_val_"
#define ZELTO_SDKMGR_VAL_PREFIX "_sdkmgr_val_"
#define ZELTO_CTX_PREFIX "zelto_ctx_"

/* Context names. */
#define ZELTO_CTX_ALBUM "zelto_ctx_album"
#define ZELTO_CTX_TRACK "zelto_ctx_track"
#define ZELTO_CTX_TITLE "zelto_ctx_title"
#define ZELTO_CTX_ARTIST "zelto_ctx_artist"
#define ZELTO_CTX_NAME "zelto_ctx_name"
#define ZELTO_CTX_CONTRIBUTOR "zelto_ctx_contributor"
#define ZELTO_CTX_LYRIC "zelto_ctx_lyric"
#define ZELTO_CTX_DISC "zelto_ctx_disc" /* one disc (medium) of a release */
#define ZELTO_CTX_RESPONSE "zelto_ctx_response" /* a provider's answer */
#define ZELTO_CTX_RESPONSE_ALBUM "zelto_ctx_response_album"
#define ZELTO_CTX_RESPONSE_TRACK "zelto_ctx_response_track"
#define ZELTO_CTX_RESPONSE_MATCH "zelto_ctx_response_match"
#define ZELTO_CTX_RESPONSE_LYRIC "zelto_ctx_response_lyric"
#define ZELTO_CTX_RESPONSE_CONTRIBUTOR "zelto_ctx_response_contributor"

/* Child keys: all children of a context, or those a selector picks. */
#define ZELTO_CHILD_ALBUM ZELTO_CTX_ALBUM "!"
#define ZELTO_CHILD_TRACK ZELTO_CTX_TRACK "!"
#define ZELTO_CHILD_TRACK_MATCHING ZELTO_CTX_TRACK "!matching" /* tracks that matched the query */
#define ZELTO_CHILD_TRACK_NUMBER ZELTO_CTX_TRACK "!number"     /* the ordinal is a track number */
#define ZELTO_CHILD_TITLE_OFFICIAL ZELTO_CTX_TITLE "!off"
#define ZELTO_CHILD_ARTIST ZELTO_CTX_ARTIST "!"
#define ZELTO_CHILD_NAME_OFFICIAL ZELTO_CTX_NAME "!off"
#define ZELTO_CHILD_CONTRIBUTOR ZELTO_CTX_CONTRIBUTOR "!"
#define ZELTO_CHILD_LYRIC ZELTO_CTX_LYRIC "!"
#define ZELTO_CHILD_RESPONSE_MATCH ZELTO_CTX_RESPONSE_MATCH "!"
#define ZELTO_CHILD_DISC ZELTO_CTX_DISC "!"
#define ZELTO_CHILD_DISC_MATCHING ZELTO_CTX_DISC "!matching" /* the disc that matched, with its own tracks */

/* Value keys of the manager's and the module's bookkeeping. */
#define ZELTO_VAL_RESPONSE_CODE "_sdkmgr_val_response_code" /* a ZELTO_RESULT_* text */
#define ZELTO_VAL_LOOKUP_LANG "_sdkmgr_val_lookup_lang"
#define ZELTO_VAL_LOOKUP_TYPE "_sdkmgr_val_lookup_type"     /* a ZELTO_LOOKUP_BY_* text */
#define ZELTO_VAL_MATCH_TYPE "_sdkmgr_val_match_type"       /* a ZELTO_MATCH_TYPE_* text */
#define ZELTO_VAL_ALB_WORKORDERS "_sdkmgr_val_alb_workorders"
#define ZELTO_VAL_MUI "_sdkmgr_val_mui"
#define ZELTO_VAL_MUITAG "_sdkmgr_val_muitag"
#define ZELTO_VAL_TUI_REV "_sdkmgr_val_tui_rev"
#define ZELTO_VAL_TEXT_MATCH_ALBUM_SCORE "_sdkmgr_val_text_match_album_score"
#define ZELTO_VAL_TEXT_MATCH_CONTRIB_SCORE "_sdkmgr_val_text_match_contrib_score"
#define ZELTO_VAL_TEXT_MATCH_TRACK_SCORE "_sdkmgr_val_text_match_track_score"

/* Value keys of albums, tracks, contributors and lyrics. */
#define ZELTO_VAL_TUI "zelto_val_tui"
#define ZELTO_VAL_TUI_TAG "zelto_val_tui_tag"
#define ZELTO_VAL_TITLE "zelto_val_title"
#define ZELTO_VAL_ARTIST "zelto_val_artist"
#define ZELTO_VAL_DISPLAY "zelto_val_display" /* text of a title or name context */
#define ZELTO_VAL_YEAR "zelto_val_year"
#define ZELTO_VAL_GENRE "zelto_val_genre"
#define ZELTO_VAL_ALBUMTRACKCNT "zelto_val_albumtrackcnt"
#define ZELTO_VAL_FULL_RESULT "zelto_val_full_result" /* "1": the whole album, "0": matched tracks only */
#define ZELTO_VAL_TRACK_MATCHED "zelto_val_track_matched"
#define ZELTO_VAL_TRACK_MATCHED_POS "zelto_val_track_matched_pos"
#define ZELTO_VAL_TRACKNUMBER "zelto_val_tracknumber"
#define ZELTO_VAL_DURATION "zelto_val_duration" /* milliseconds */
#define ZELTO_VAL_TOC "zelto_val_toc"
#define ZELTO_VAL_TOC_ALBUM "zelto_val_toc_album" /* the TOC text a lookup was made with */
#define ZELTO_VAL_ALBUM_TUI "zelto_val_album_tui"
#define ZELTO_VAL_LYRIC_TEXT "zelto_val_lyric_text"
#define ZELTO_VAL_LANGUAGE "zelto_val_language"
#define ZELTO_VAL_COLLAB_RESULT "zelto_val_collab_result"
#define ZELTO_VAL_DISCNUMBER "zelto_val_discnumber"     /* of a disc, or of a track's disc: from 1 */
#define ZELTO_VAL_DISCCOUNT "zelto_val_disccount"       /* discs of an album's release */
#define ZELTO_VAL_DISC_MATCHED "zelto_val_disc_matched" /* number of the disc that matched */

/* Value keys of an album's edition (the release as it was issued), present
 * where the imported data gives them: what tells apart several releases that
 * share one TOC. The format is that of the album's matched (else first)
 * disc, and a disc carries its own. */
#define ZELTO_VAL_COUNTRY "zelto_val_country"               /* "GB", "XE", ... */
#define ZELTO_VAL_RELEASE_DATE "zelto_val_release_date"     /* "1999", "1999-03" or "1999-03-02" */
#define ZELTO_VAL_LABEL "zelto_val_label"                   /* record labels, joined by ", " */
#define ZELTO_VAL_CATALOG_NUMBER "zelto_val_catalog_number" /* the labels' catalogue numbers, joined by ", " */
#define ZELTO_VAL_BARCODE "zelto_val_barcode"
#define ZELTO_VAL_FORMAT "zelto_val_format"                 /* "CD", "Enhanced CD", ... */

/* Value keys of a response and of its rows. */
#define ZELTO_VAL_RANGESTART "zelto_val_rangestart"
#define ZELTO_VAL_RANGEEND "zelto_val_rangeend"
#define ZELTO_VAL_RANGECOUNT "zelto_val_rangecount"
#define ZELTO_VAL_RESULTCOUNT "zelto_val_resultcount"
#define ZELTO_VAL_DECISION "zelto_val_decision"
#define ZELTO_VAL_TXTMATCHSCORE "zelto_val_txtmatchscore"

/* Values of ZELTO_VAL_MATCH_TYPE. */
#define ZELTO_MATCH_TYPE_NONE "NONE"
#define ZELTO_MATCH_TYPE_SINGLE "SINGLE"
#define ZELTO_MATCH_TYPE_FUZZY "FUZZY"
#define ZELTO_MATCH_TYPE_MULTI "MULTI"

/* Values of ZELTO_VAL_LOOKUP_TYPE: how a result was found. */
#define ZELTO_LOOKUP_BY_TEXT "TEXT"
#define ZELTO_LOOKUP_BY_TUI "TUI"
#define ZELTO_LOOKUP_BY_TOC "TOC"
#define ZELTO_LOOKUP_BY_FP "FP"

/* Soft error value (low 16 bits) of the result-object service: the object
 * has values under the key, but its data flags withhold them all. It bars
 * the fall-back of a result to its info map. */
#define ZELTO_RVO_ERROR_WITHHELD 0x02D3u

#endif
