/* A C11 program's view of mail addresses. Each function gives NULL, or the check that failed. */
#include <stdlib.h>
#include <string.h>

#include "include2/quillmark.h"

#define TEXT_OF(condition) #condition
#define CHECK(condition) \
    if (!(condition)) return TEXT_OF(condition)

static int same(char const* text, char const* expected) {
    return text && strcmp(text, expected) == 0;
}

char const* addressIsCreatedFromText(void) {
    quill_emailaddress* address = quill_emailaddress_create("\"Smith, John\" <John@Host.Example>");
    CHECK(address);
    CHECK(same(quill_emailaddress_get_string(address), "\"Smith, John\" <john@host.example>"));
    CHECK(same(quill_emailaddress_get_email_address(address), "john@host.example"));
    CHECK(same(quill_emailaddress_get_local(address), "john"));
    CHECK(same(quill_emailaddress_to_username(address), "john"));
    CHECK(same(quill_emailaddress_get_domain(address), "host.example"));
    CHECK(same(quill_emailaddress_get_personal(address), "\"Smith, John\""));
    quill_emailaddress_destroy(address);

    address = quill_emailaddress_create("b@xx.example, a@xx.example");
    CHECK(same(quill_emailaddress_get_string(address), "a@xx.example"));
    CHECK(same(quill_emailaddress_get_personal(address), ""));
    quill_emailaddress_destroy(address);

    address = quill_emailaddress_create("postmaster");
    CHECK(same(quill_emailaddress_get_email_address(address), "postmaster"));
    CHECK(same(quill_emailaddress_get_domain(address), ""));
    quill_emailaddress_destroy(address);

    CHECK(!quill_emailaddress_create("not an address(("));
    CHECK(!quill_emailaddress_create(""));
    CHECK(!quill_emailaddress_create(NULL));
    return NULL;
}

char const* nullIsNoAddress(void) {
    quill_emailaddress_destroy(NULL);
    CHECK(!quill_emailaddress_get_string(NULL));
    CHECK(!quill_emailaddress_get_email_address(NULL));
    CHECK(!quill_emailaddress_get_local(NULL));
    CHECK(!quill_emailaddress_to_username(NULL));
    CHECK(!quill_emailaddress_get_domain(NULL));
    CHECK(!quill_emailaddress_get_personal(NULL));
    return NULL;
}

char const* addressesAreFoundInOrder(void) {
    int count = 17;
    CHECK(!quill_emailaddress_find(NULL, &count));
    CHECK(count == 17);
    CHECK(!quill_emailaddress_find(NULL, NULL));
    CHECK(!quill_emailaddress_find("a@b", &count));
    CHECK(count == 0);

    quill_emailaddress** found = quill_emailaddress_find("B@xx.example, a@xx.example, b@xx.example", &count);
    CHECK(found);
    CHECK(count == 2);
    CHECK(same(quill_emailaddress_get_string(found[0]), "a@xx.example"));
    CHECK(same(quill_emailaddress_get_string(found[1]), "b@xx.example"));
    for (int i = 0; i < count; ++i) quill_emailaddress_destroy(found[i]);
    free(found);

    found = quill_emailaddress_find("a@xx.example", NULL);
    CHECK(found);
    CHECK(same(quill_emailaddress_get_local(found[0]), "a"));
    quill_emailaddress_destroy(found[0]);
    free(found);
    CHECK(!quill_emailaddress_find("", NULL));
    return NULL;
}

char const* containerOwnsItsAddresses(void) {
    quill_emailaddress_container* list = quill_emailaddress_container_create();
    CHECK(list);
    CHECK(!list->address);
    CHECK(!list->next);

    quill_emailaddress* first = quill_emailaddress_create("a@xx.example");
    quill_emailaddress_container_append(list, first);
    CHECK(list->address == first);
    CHECK(!list->next);

    quill_emailaddress_container_append(list, NULL);
    CHECK(!list->next);
    quill_emailaddress_container_append(NULL, first);

    quill_emailaddress* second = quill_emailaddress_create("b@xx.example");
    quill_emailaddress* third = quill_emailaddress_create("c@xx.example");
    quill_emailaddress_container_append(list, second);
    quill_emailaddress_container_append(list, third);
    CHECK(list->address == first);
    CHECK(list->next && list->next->address == second);
    CHECK(list->next->next && list->next->next->address == third);
    CHECK(!list->next->next->next);

    quill_emailaddress_container_destroy(&list);
    CHECK(!list);
    quill_emailaddress_container_destroy(&list);
    quill_emailaddress_container_destroy(NULL);

    list = quill_emailaddress_container_create();
    quill_emailaddress_container_destroy(&list);
    CHECK(!list);

    list = quill_emailaddress_container_create();
    list->next = quill_emailaddress_container_create();
    quill_emailaddress* last = quill_emailaddress_create("d@xx.example");
    quill_emailaddress_container_append(list, last);
    CHECK(!list->address);
    CHECK(list->next->address == last);
    CHECK(!list->next->next);
    quill_emailaddress_container_destroy(&list);
    CHECK(!list);
    return NULL;
}
