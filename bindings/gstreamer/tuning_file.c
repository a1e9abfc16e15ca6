#include "tuning_file.h"

#include <json-glib/json-glib.h>
#include <math.h>
#include <stddef.h>

/* Where a record keeps the field of a key; count > 1 is an array of one number per pyramid level.
 */
typedef struct {
  const gchar* key;
  gsize offset;
  guint count;
} Field;

#define LUMA(key, count) \
  { #key, offsetof(ycnr_ynr_tuning_param, key), count }
#define CHROMA(key) \
  { #key, offsetof(ycnr_cnr_tuning_param, key), 1 }

static const Field luma_fields[] = {LUMA(enable, 1),  LUMA(layer, 1),  LUMA(pIntensity, 5),
                                    LUMA(pRadius, 5), LUMA(param0, 1), LUMA(param1, 1),
                                    LUMA(param2, 1)};
static const Field chroma_fields[] = {
    CHROMA(enable), CHROMA(range_factor), CHROMA(smooth_radius), CHROMA(scale),
    CHROMA(step),   CHROMA(color_edge_u), CHROMA(color_edge_v),  CHROMA(saturation),
    CHROMA(param0), CHROMA(param1),       CHROMA(param2)};

G_DEFINE_QUARK(vorn - tuning - error, tuning_error)

/* Every fault is told as "FILE: CAUSE". */
static gboolean fail(GError** error, const gchar* path, const gchar* format, ...)
    G_GNUC_PRINTF(3, 4);
static gboolean fail(GError** error, const gchar* path, const gchar* format, ...) {
  va_list args;
  va_start(args, format);
  gchar* cause = g_strdup_vprintf(format, args);
  va_end(args);
  g_set_error(error, tuning_error_quark(), 0, "%s: %s", path, cause);
  g_free(cause);
  return FALSE;
}

static gboolean read_integer(JsonNode* node, gint32* value) {
  if (!node || !JSON_NODE_HOLDS_VALUE(node) || json_node_get_value_type(node) != G_TYPE_INT64)
    return FALSE;
  const gint64 wide = json_node_get_int(node);
  *value = (gint32)wide;
  return *value == wide;
}

/* Refuses keys of object that are not among the known ones; prefix is for the message. */
static gboolean allow_only(JsonObject* object, const gchar* const* known, const gchar* prefix,
                           const gchar* path, GError** error) {
  gboolean good = TRUE;
  GList* keys = json_object_get_members(object);
  for (GList* key = keys; key && good; key = key->next)
    if (!g_strv_contains(known, key->data))
      good = fail(error, path, "unknown field %s%s", prefix, (const gchar*)key->data);
  g_list_free(keys);
  return good;
}

static gboolean read_record(JsonObject* entry, const gchar* name, const Field* fields, guint count,
                            void* record, const gchar* path, GError** error) {
  JsonNode* node = json_object_get_member(entry, name);
  if (!node || !JSON_NODE_HOLDS_OBJECT(node)) return fail(error, path, "\"%s\" is missing", name);
  JsonObject* object = json_node_get_object(node);

  for (guint i = 0; i < count; ++i) {
    JsonNode* member = json_object_get_member(object, fields[i].key);
    gint32* values = (gint32*)((guint8*)record + fields[i].offset);
    gboolean good;
    if (fields[i].count == 1) {
      good = read_integer(member, values);
    } else {
      JsonArray* array =
          member && JSON_NODE_HOLDS_ARRAY(member) ? json_node_get_array(member) : NULL;
      good = array && json_array_get_length(array) == fields[i].count;
      for (guint k = 0; good && k < fields[i].count; ++k)
        good = read_integer(json_array_get_element(array, k), values + k);
    }
    if (!good)
      return fail(error, path, "%s.%s must be %s 32-bit integer%s", name, fields[i].key,
                  fields[i].count == 1 ? "a" : "an array of five", fields[i].count == 1 ? "" : "s");
  }
  const gchar* known[G_N_ELEMENTS(chroma_fields) + 1] = {NULL};
  for (guint i = 0; i < count; ++i) known[i] = fields[i].key;
  gchar* prefix = g_strconcat(name, ".", NULL);
  const gboolean good = allow_only(object, known, prefix, path, error);
  g_free(prefix);
  return good;
}

static gboolean read_entry(JsonNode* node, TuningEntry* entry, const gchar* path, GError** error) {
  if (!JSON_NODE_HOLDS_OBJECT(node)) return fail(error, path, "an entry is not an object");
  JsonObject* object = json_node_get_object(node);
  JsonNode* gain = json_object_get_member(object, "gain");
  entry->gain = gain && JSON_NODE_HOLDS_VALUE(gain) ? json_node_get_double(gain) : 0;
  if (!(entry->gain > 0 && entry->gain <= 1e6))
    return fail(error, path, "an entry has no gain above 0, up to 1e6");
  static const gchar* const known[] = {"gain", "luma", "chroma", NULL};
  return allow_only(object, known, "", path, error) &&
         read_record(object, "luma", luma_fields, G_N_ELEMENTS(luma_fields), &entry->luma, path,
                     error) &&
         read_record(object, "chroma", chroma_fields, G_N_ELEMENTS(chroma_fields), &entry->chroma,
                     path, error);
}

static gboolean read_set(JsonNode* root, GArray* set, const gchar* path, GError** error) {
  if (!root || !JSON_NODE_HOLDS_OBJECT(root)) return fail(error, path, "not an object");
  JsonObject* object = json_node_get_object(root);
  static const gchar* const known[] = {"$schema",     "format",  "version", "name",
                                       "description", "entries", NULL};
  if (!allow_only(object, known, "", path, error)) return FALSE;
  if (g_strcmp0(json_object_get_string_member_with_default(object, "format", NULL),
                "vorn-ycnr tuning set") != 0)
    return fail(error, path, "\"format\" must be \"vorn-ycnr tuning set\"");
  gint32 version = 0;
  if (!read_integer(json_object_get_member(object, "version"), &version) || version != 1)
    return fail(error, path, "\"version\" must be 1");

  JsonNode* node = json_object_get_member(object, "entries");
  JsonArray* entries = node && JSON_NODE_HOLDS_ARRAY(node) ? json_node_get_array(node) : NULL;
  if (!entries || json_array_get_length(entries) == 0)
    return fail(error, path, "no \"entries\", an array of at least one");
  for (guint i = 0; i < json_array_get_length(entries); ++i) {
    TuningEntry entry = {0};
    if (!read_entry(json_array_get_element(entries, i), &entry, path, error)) return FALSE;
    if (i > 0 && entry.gain <= g_array_index(set, TuningEntry, i - 1).gain)
      return fail(error, path, "\"gain\" must rise from entry to entry");
    g_array_append_val(set, entry);
  }
  return TRUE;
}

GArray* tuning_file_read(const gchar* path, GError** error) {
  JsonParser* parser = json_parser_new_immutable();
  GArray* set = g_array_new(FALSE, TRUE, sizeof(TuningEntry));
  GError* cause = NULL;
  gboolean good = json_parser_load_from_file(parser, path, &cause);
  if (!good)
    fail(error, path, "%s", cause->message);
  else
    good = read_set(json_parser_get_root(parser), set, path, error);
  g_clear_error(&cause);
  g_object_unref(parser);
  if (good) return set;
  g_array_unref(set);
  return NULL;
}

GArray* tuning_fallback(void) {
  const TuningEntry entry = {.gain = 8,
                             .luma = {.enable = 1,
                                      .layer = 4,
                                      .pIntensity = {120, 48, 24, 12, 0},
                                      .pRadius = {5, 5, 5, 5, 5},
                                      .param0 = 64},
                             .chroma = {.enable = 1,
                                        .range_factor = 14,
                                        .smooth_radius = 6,
                                        .scale = 2,
                                        .step = 1,
                                        .color_edge_u = 8,
                                        .color_edge_v = 8}};
  GArray* set = g_array_new(FALSE, TRUE, sizeof(TuningEntry));
  return g_array_append_val(set, entry);
}

const TuningEntry* tuning_nearest(const GArray* set, gdouble gain) {
  const TuningEntry* best = NULL;
  gdouble best_distance = 0;
  for (guint i = 0; i < set->len; ++i) {
    const TuningEntry* entry = &g_array_index(set, TuningEntry, i);
    const gdouble distance = fabs(log2(gain) - log2(entry->gain));
    if (best && distance >= best_distance) continue;
    best = entry;
    best_distance = distance;
  }
  return best;
}
