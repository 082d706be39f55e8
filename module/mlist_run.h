/* One run of ModuleMain(): its record and its stages, in the order in which they happen. */
#ifndef MODULE_MLIST_RUN_H
#define MODULE_MLIST_RUN_H

#include <stdio.h>

#include "module/job.h"
#include "module/mlist_meter.h"

/* What a stage decided. */
enum class Verdict {
    go_on,
    succeed, /* success exit: 0 */
    fail,    /* failure exit: 75 when a temporary failure was recorded, else 69 */
    leave    /* exit_code at once */
};

/* A step that writes to the journal: its outcome and the number of its log line. */
struct JournalStep {
    int code;
    int msgno;
};

struct Run {
    DeliveryRequest *request;
    DeliveryJob job;
    int exit_code;     /* for Verdict::leave */
    FILE *message;     /* the incoming message while it is read */
    char *read_buffer; /* its stdio buffer, host memory */
    char journal_path[PATH_SIZE];
    HeaderMeter header;   /* of the journal */
    JournalStep waiting;  /* the step whose text is the first that waits in the journal's buffer */
    int member_known;     /* result of the last mail_access2(), -1 when it has to be asked again */
    char line[LINE_SIZE]; /* the piece of the message that is being handled */
};

/* -- stages -- */
Verdict check_arguments(Run *run); /* who is meant: 501 */
Verdict lock_list(Run *run);       /* 451, 502 */
Verdict prepare_list(Run *run);    /* directories, settings, number, size: 503, 505, 538 */
Verdict open_files(Run *run);      /* journal and message: 506, 508 */
Verdict copy_message(Run *run);    /* every line: 480, 509 to 524, 525 */
Verdict close_files(Run *run);     /* bottom banner, sync: 480, 520, 526 */
Verdict decide(Run *run);          /* commands done, denial or distribution: 527 to 537 */

/* -- parts of stages that have a file of their own -- */
Verdict handle_header_line(Run *run);
Verdict handle_body_line(Run *run);
Verdict deny(Run *run, const char *reason);
Verdict distribute(Run *run);

/* -- shared by the stages -- */

/* Makes ROOT/DOMAIN, or ROOT/DOMAIN/LIST, below both roots, with the domain as the host gave it;
   failures show in the steps that follow. */
void make_list_directories(const Run *run, const char *list);

/* Writes to the journal, or collects for it.  A full disk is outcome 480, another failure the
   outcome and log number of the first step whose text did not get there. */
Verdict write_journal(Run *run, const char *text, JournalStep step);

/* Writes what is collected. */
Verdict drain_journal(Run *run);

/* Hands a file to the host; keeps the result text when it took it.  Whether it did. */
bool submit_file(Run *run, const char *file, const char *const *recipients,
                 const char *recipient_file);

/* A step without more to say failed: logs "mlname=LIST TEXT", and leaves the outcome, whose
   arguments are the list and the thread.  Verdict::fail. */
Verdict step_failed(Run *run, const char *text, int code, int msgno);

/* Deletes a file of the delivery; a failure is logged (403). */
void delete_or_log(const Run *run, const char *path);

#endif
