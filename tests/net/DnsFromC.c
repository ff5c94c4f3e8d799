#define _POSIX_C_SOURCE 200809L
#include "tests/net/DnsFromC.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

_Static_assert(sizeof(quill_dns_question) == 96, "elements have a fixed size");
_Static_assert(sizeof(quill_dns_record) == 96, "elements have a fixed size");

#define HAS_ITS_PLACE(element, field, place, width)                           \
    _Static_assert(offsetof(element, field) == (place), #element "." #field); \
    _Static_assert(sizeof(((element*)0)->field) == (width), #element "." #field)

HAS_ITS_PLACE(quill_dns_question, type, 0, 2);
HAS_ITS_PLACE(quill_dns_question, record_class, 2, 2);
HAS_ITS_PLACE(quill_dns_question, name, 8, 8);
HAS_ITS_PLACE(quill_dns_record, type, 0, 2);
HAS_ITS_PLACE(quill_dns_record, record_class, 2, 2);
HAS_ITS_PLACE(quill_dns_record, name, 8, 8);
HAS_ITS_PLACE(quill_dns_record, ttl, 16, 4);
HAS_ITS_PLACE(quill_dns_record, value, 24, 8);
HAS_ITS_PLACE(quill_dns_record, mx_rank, 32, 4);
HAS_ITS_PLACE(quill_dns_record, mname, 40, 8);
HAS_ITS_PLACE(quill_dns_record, rname, 48, 8);
HAS_ITS_PLACE(quill_dns_record, serial, 56, 4);
HAS_ITS_PLACE(quill_dns_record, refresh, 60, 4);
HAS_ITS_PLACE(quill_dns_record, retry, 64, 4);
HAS_ITS_PLACE(quill_dns_record, expire, 68, 4);
HAS_ITS_PLACE(quill_dns_record, minimum, 72, 4);
HAS_ITS_PLACE(quill_dns_record, rdata, 80, 8);
HAS_ITS_PLACE(quill_dns_record, rdata_length, 88, 8);

/* A text in the making. */
typedef struct {
    char* bytes;
    size_t size;
    FILE* stream;
} text;

static text startText(void) {
    text t = {NULL, 0, NULL};
    return t;
}

static FILE* openText(text* t) {
    t->stream = open_memstream(&t->bytes, &t->size);
    return t->stream;
}

static char* endText(text* t) {
    fclose(t->stream);
    return t->bytes;
}

static void writeBytes(FILE* out, unsigned char const* bytes, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) fprintf(out, "%02x", (unsigned)bytes[i]);
}

/* What must be zero, by offset. */
static int isZero(void const* element, size_t from, size_t to) {
    unsigned char const* bytes = element;
    for (size_t i = from; i < to; ++i)
        if (bytes[i] != 0) return 0;
    return 1;
}

static void writeQuestions(FILE* out, quill_dns_query* query) {
    quill_dns_question* questions = (quill_dns_question*)&questions;
    int const count = quill_dns_query_get_queries(query, &questions);
    fprintf(out, "queries %d%s\n", count, questions ? "" : " null");
    for (int i = 0; i < count; ++i) {
        quill_dns_question const* q = &questions[i];
        fprintf(out, " %s type %u class %u%s\n", q->name, (unsigned)q->type, (unsigned)q->record_class,
                isZero(q, 4, 8) && isZero(q, 16, 96) ? "" : " NOT ZERO");
    }
    free(questions);
}

typedef int (*section)(quill_dns_query*, quill_dns_record**);

static void writeRecords(FILE* out, char const* heading, section get, quill_dns_query* query) {
    quill_dns_record* records = (quill_dns_record*)&records;
    int const count = get(query, &records);
    fprintf(out, "%s %d%s\n", heading, count, records ? "" : " null");
    for (int i = 0; i < count; ++i) {
        quill_dns_record const* r = &records[i];
        fprintf(
            out,
            " %s type %u class %u ttl %u value '%s' rank %u mname '%s' rname '%s' soa %u %u %u %u %u rdata ",
            r->name, (unsigned)r->type, (unsigned)r->record_class, (unsigned)r->ttl, r->value,
            (unsigned)r->mx_rank, r->mname, r->rname, (unsigned)r->serial, (unsigned)r->refresh,
            (unsigned)r->retry, (unsigned)r->expire, (unsigned)r->minimum);
        writeBytes(out, r->rdata, r->rdata_length);
        fprintf(out, "%s%s\n", r->rdata ? "" : " NULL",
                isZero(r, 4, 8) && isZero(r, 20, 24) && isZero(r, 36, 40) && isZero(r, 76, 80) ? ""
                                                                                               : " NOT ZERO");
    }
    free(records);
}

static void writeSections(FILE* out, quill_dns_query* query) {
    writeQuestions(out, query);
    writeRecords(out, "answers", quill_dns_query_get_answers, query);
    writeRecords(out, "name servers", quill_dns_query_get_nameserver_records, query);
    writeRecords(out, "additional", quill_dns_query_get_additional_records, query);
}

static void writeState(FILE* out, quill_dns_query* query) {
    int authoritative = 7;
    int truncated = 7;
    int const flags = quill_dns_query_get_flags(query, &authoritative, &truncated);
    fprintf(out, "flags %d: %d %d\n", flags, authoritative, truncated);
    int error = 7;
    char const* why = "untouched";
    int const failed = quill_dns_query_get_error(query, &error, &why);
    fprintf(out, "error %d: %d %s\n", failed, error, why);
}

char* answerFromC(int type, int recordClass, char const* name, char const* server, int port) {
    text t = startText();
    FILE* const out = openText(&t);
    quill_dns_query* const query = quill_dns_query_create(type, recordClass, name, server, port);
    if (query) {
        writeSections(out, query);
        writeState(out, query);
    } else {
        fprintf(out, "no query\n");
    }
    quill_dns_query_release(query);
    return endText(&t);
}

char* printFromC(char const* name, char const* server, int port) {
    text t = startText();
    FILE* const out = openText(&t);
    quill_dns_query* const query = name ? quill_dns_query_create(1, 1, name, server, port) : NULL;
    quill_dns_query_print(query, out);
    quill_dns_query_print(query, NULL);
    quill_dns_query_release(query);
    return endText(&t);
}

/* Each function's result, and whether it left alone where it would have stored something. */
static void writeRefusals(FILE* out, quill_dns_query* query) {
    quill_dns_question question;
    quill_dns_record record;
    quill_dns_question* questions = &question;
    quill_dns_record* records = &record;
    fprintf(out, "%d ", quill_dns_query_get_queries(query, &questions));
    fprintf(out, "%d ", quill_dns_query_get_answers(query, &records));
    fprintf(out, "%d ", quill_dns_query_get_nameserver_records(query, &records));
    fprintf(out, "%d ", quill_dns_query_get_additional_records(query, &records));
    fprintf(out, "%s\n", questions == &question && records == &record ? "untouched" : "stored");
    writeState(out, query);
}

char* nullQueryFromC(void) {
    text t = startText();
    FILE* const out = openText(&t);
    writeRefusals(out, NULL);
    quill_dns_query_release(NULL);
    return endText(&t);
}

char* failedQueryFromC(char const* name, char const* server, int port) {
    text t = startText();
    FILE* const out = openText(&t);
    quill_dns_query* const query = quill_dns_query_create(1, 1, name, server, port);
    writeRefusals(out, query);
    fprintf(out, "%d\n", quill_dns_query_get_error(query, NULL, NULL));
    quill_dns_query_release(query);
    return endText(&t);
}

char* nothingStoredFromC(char const* name, char const* server, int port) {
    text t = startText();
    FILE* const out = openText(&t);
    quill_dns_query* const query = quill_dns_query_create(1, 1, name, server, port);
    fprintf(out, "%d ", quill_dns_query_get_queries(query, NULL));
    fprintf(out, "%d ", quill_dns_query_get_answers(query, NULL));
    fprintf(out, "%d ", quill_dns_query_get_nameserver_records(query, NULL));
    fprintf(out, "%d ", quill_dns_query_get_additional_records(query, NULL));
    fprintf(out, "%d ", quill_dns_query_get_flags(query, NULL, NULL));
    fprintf(out, "%d", quill_dns_query_get_error(query, NULL, NULL));
    quill_dns_query_release(query);
    return endText(&t);
}

char* namesFromC(int type, int recordClass, char const* host) {
    text t = startText();
    FILE* const out = openText(&t);
    fprintf(out, "%s %s %d", quill_dns_type_name(type), quill_dns_class_name(recordClass),
            quill_dns_validate_hostname(host));
    return endText(&t);
}

char* withoutMemoryFromC(quill_dns_query* query) {
    text t = startText();
    FILE* const out = openText(&t);
    quill_dns_question* questions = (quill_dns_question*)&questions;
    quill_dns_record* records = (quill_dns_record*)&records;
    int const questionCount = quill_dns_query_get_queries(query, &questions);
    int const recordCount = quill_dns_query_get_answers(query, &records);
    fprintf(out, "%d%s %d%s", questionCount, questions ? "" : " null", recordCount, records ? "" : " null");
    return endText(&t);
}

static void writeBuffer(FILE* out, char const* buffer, int size) {
    fprintf(out, "[");
    for (int i = 0; i < size; ++i) fprintf(out, "%c", buffer[i] ? buffer[i] : '#');
    fprintf(out, "]%s", buffer[size < 0 ? 0 : size] == 'x' ? "" : " OVERRUN");
}

char* queryStringFromC(char const* address, int size) {
    text t = startText();
    FILE* const out = openText(&t);
    char buffer[128];
    memset(buffer, 'x', sizeof buffer);
    fprintf(out, "%d ", quill_dns_get_ip_querystring(address, buffer, size));
    writeBuffer(out, buffer, size);
    return endText(&t);
}

char* serverInfoFromC(int size) {
    text t = startText();
    FILE* const out = openText(&t);
    char buffer[128];
    memset(buffer, 'x', sizeof buffer);
    int port = -1;
    fprintf(out, "%d ", quill_dns_get_serverinfo(buffer, size, &port));
    writeBuffer(out, buffer, size);
    fprintf(out, " %d", port);
    quill_dns_get_serverinfo(buffer, size, NULL);
    return endText(&t);
}

char* serverPortFromC(void) {
    text t = startText();
    FILE* const out = openText(&t);
    int port = -1;
    fprintf(out, "%d ", quill_dns_get_serverinfo(NULL, 10, &port));
    fprintf(out, "%d ", quill_dns_get_serverinfo(NULL, 10, NULL));
    fprintf(out, "%d", port);
    return endText(&t);
}

static void writeAddress(FILE* out, ip_addr_t const* address) {
    char buffer[64];
    fprintf(out, " %s", quill_ip_to_string(address, buffer, sizeof buffer, true) ? buffer : "-");
}

char* addressListFromC(char const* name, int max, int family) {
    text t = startText();
    FILE* const out = openText(&t);
    ip_addr_t addresses[4];
    memset(addresses, 0, sizeof addresses);
    int const count = quill_hostname_to_ipaddress_list(name, addresses, max, family);
    fprintf(out, "%d", count);
    for (int i = 0; i < count; ++i) writeAddress(out, &addresses[i]);
    fprintf(out, " |");
    for (int i = count; i < 4; ++i) writeAddress(out, &addresses[i]);
    return endText(&t);
}

int addressListWithoutArrayFromC(char const* name, int max) {
    return quill_hostname_to_ipaddress_list(name, NULL, max, -1);
}
