/* A program that is looked at where it stops. */
#include <cUtil/cUtil.h>

#include <stdlib.h>
#include <string.h>

static cu_Variant variants[8];
static cu_PropertyMap properties;
static cu_String* name;
static cu_ArgumentArray* words;
static cu_Set* set;
static cu_Map* map;
static cu_Queue* queue;
static cu_RBTree* tree;
static cu_ErrorCode code;

static uint32_t hash(const void* key)
{
    return (uint32_t)strlen(key);
}

static int32_t equal(const void* a, const void* b)
{
    return strcmp(a, b) == 0;
}

static int32_t compare(const void* a, const void* b)
{
    return strcmp(a, b);
}

static void* clone(const void* text)
{
    return strdup(text);
}

static void* cloneVariant(const void* source)
{
    cu_Variant* copy = calloc(1, sizeof(*copy));
    cu_Variant_clone(copy, source);
    return copy;
}

static void stop(void) {}

int main(void)
{
    static const char* const texts[] = {"a", "bbb", "cc", "long \"one\"\n"};
    bool inserted;
    uint32_t i;

    cu_Variant_set_bool(&variants[1], true);
    cu_Variant_set_sint8(&variants[2], -65);
    cu_Variant_set_uint64(&variants[3], UINT64_MAX);
    cu_Variant_set_ieee64(&variants[4], 2.5);
    cu_Variant_set_string(&variants[5], "text");
    cu_Variant_set_binary(&variants[6], (const uint8_t*)"\001\377", 2);
    cu_Variant_set_vector(&variants[7], variants, 6);
    cu_PropertyMap_init(&properties);
    cu_PropertyMap_insert(&properties, "speed", &variants[4]);
    cu_PropertyMap_insert(&properties, "label", &variants[5]);
    cu_String_new(&name, NULL);
    cu_String_assignStr(name, "a \"name\"");
    cu_ArgumentArray_new(&words, NULL);
    cu_Set_new(&set, hash, equal, free, clone, NULL);
    cu_Map_new(&map, hash, equal, free, free, clone, cloneVariant, NULL);
    cu_Queue_new(&queue, free, clone, NULL);
    cu_RBTree_new(&tree, compare, NULL, NULL, NULL);
    for (i = 0; i < 4; ++i) {
        cu_ArgumentArray_addCString(words, texts[i]);
        cu_Set_constInsert(set, texts[i], &inserted);
        cu_Map_constInsert(map, texts[i], &variants[i + 2]);
        cu_RBTree_add(tree, texts[(i + 2) % 4], &variants[i]);
    }
    for (i = 0; i < 34; ++i) /* the last three fill another chunk */
        cu_Queue_constPushTail(queue, texts[i % 4]);
    for (i = 0; i < 29; ++i) {
        void* element = NULL;
        cu_Queue_popHead(queue, &element);
        free(element);
    }
    code = cu_String_clear(NULL);
    stop();
    return 0;
}
