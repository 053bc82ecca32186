/*
 * The part that knows expat. It streams through the content once; what a policy must not hold ends the parse where it
 * begins, so that no such construct is ever acted upon.
 */
#include "teskxml_parse.h"

#include "teskxml_error.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <expat.h>
#include <strings.h>

typedef struct {
    XML_Parser parser;
    PTESKXML_DOC pdoc;
    const char* psection;
    const char* pdata;
    const char* pend;
    const char* pline;  /* start of the line that was last asked for */
    const char* pbreak; /* its end, or the content's */
    int line;
    uint32_t current; /* innermost open element */
    int depth;        /* open elements */
    bool divided;     /* a comment stands behind a part of the current value */
    int result;       /* once it is a failure, the callbacks that expat still makes do nothing */
} TESKXML_PARSE;

static const char* teskxml_nextbreak(const char* pbegin, const char* pend)
{
    const char* pbreak = static_cast<const char*>(memchr(pbegin, '\n', static_cast<size_t>(pend - pbegin)));

    return pbreak != nullptr ? pbreak : pend;
}

/* Place of the current event. Counted in step with the parse, as expat's own count goes byte by byte, and in
   characters. In a content without a single byte there is no event; its place is the start. */
static void teskxml_where(TESKXML_PARSE* pparse, int32_t* pline, int32_t* pcolumn)
{
    const char* pevent = pparse->pdata + std::max<XML_Index>(XML_GetCurrentByteIndex(pparse->parser), 0);

    while (pparse->pbreak < pevent) {
        pparse->line++;
        pparse->pline = pparse->pbreak + 1;
        pparse->pbreak = teskxml_nextbreak(pparse->pline, pparse->pend);
    }
    *pline = pparse->line;
    *pcolumn = static_cast<int32_t>(pevent - pparse->pline) + 1;
}

static void teskxml_refuse(TESKXML_PARSE* pparse, int ncode, const char* pformat, ...)
    __attribute__((format(printf, 3, 4)));

/* Ends the parse with a failure at the current event. */
static void teskxml_refuse(TESKXML_PARSE* pparse, int ncode, const char* pformat, ...)
{
    va_list args;
    int32_t nline = 0;
    int32_t ncolumn = 0;

    teskxml_where(pparse, &nline, &ncolumn);
    va_start(args, pformat);
    pparse->result = teskxml_vfail(ncode, pparse->pdoc->pfile, nline, ncolumn, pformat, args);
    va_end(args);
    XML_StopParser(pparse->parser, XML_FALSE);
}

/* Depths down to which there are only elements for further elements: "root", and the section in a section's file. */
static int teskxml_branchdepth(const TESKXML_PARSE* pparse)
{
    return pparse->psection != nullptr ? 2 : 1;
}

/* The name that an element at the current depth must have; null: any. */
static const char* teskxml_requiredname(const TESKXML_PARSE* pparse)
{
    const char* pname = nullptr;

    if (pparse->depth == 0) {
        pname = "root";
    } else if (pparse->depth == 1) {
        pname = pparse->psection;
    }
    return pname;
}

static void teskxml_refuseduplicate(TESKXML_PARSE* pparse, uint32_t nfirst)
{
    teskxml_refuse(pparse, TESKXML_RET_FAIL_DUPLICATE, "the key %s is given twice, first in line %d",
                   teskxml_doc_key(pparse->pdoc, nfirst), pparse->pdoc->pnode[nfirst].line);
}

/* Looks at everything about a new element that can be told before it is added. */
static void teskxml_checkelement(TESKXML_PARSE* pparse, const char* pname, size_t nlen, const char* pattribute)
{
    PTESKXML_DOC pdoc = pparse->pdoc;
    const char* prequired = teskxml_requiredname(pparse);
    size_t nparentlen = pparse->depth > 0 ? pdoc->pnode[pparse->current].keylen : 0;

    if (pattribute != nullptr) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_FORBIDDEN, "the element %s has the attribute %s",
                       teskxml_shown(pname).text, teskxml_shown(pattribute).text);
    } else if (prequired != nullptr && strcmp(pname, prequired) != 0) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_SCOPE, "the element %s lies outside %s%s", teskxml_shown(pname).text,
                       pparse->depth == 0 ? "/" : "/root/", prequired);
    } else if (pparse->depth >= TESKXML_MAX_DEPTH) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_LIMIT, "more than %d elements within each other", TESKXML_MAX_DEPTH);
    } else if (nparentlen + 1 + nlen > TESKXML_MAX_KEY) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_LIMIT, "the key gets longer than %d", TESKXML_MAX_KEY);
    } else if (pparse->depth > 0 && pdoc->pnode[pparse->current].valuelen > 0) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_FORBIDDEN, "the element %s follows a text", teskxml_shown(pname).text);
    }
}

/* Adds an element that may be there, and goes into it. */
static void teskxml_enter(TESKXML_PARSE* pparse, const char* pname, size_t nlen)
{
    PTESKXML_DOC pdoc = pparse->pdoc;
    uint32_t nnode = TESKXML_NONE;

    if (teskxml_doc_add(pdoc, pparse->current, pname, nlen, &nnode)) {
        teskxml_where(pparse, &pdoc->pnode[nnode].line, &pdoc->pnode[nnode].column);
        if (pparse->depth > 0) {
            pdoc->pnode[pparse->current].branch = true;
        }
        pdoc->pnode[nnode].branch = pparse->depth < teskxml_branchdepth(pparse);
        pparse->current = nnode;
        pparse->depth++;
    } else if (nnode != TESKXML_NONE) {
        teskxml_refuseduplicate(pparse, nnode);
    } else {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_LIMIT, "more than %d elements", TESKXML_MAX_KEYS);
    }
}

static void teskxml_onstart(void* puser, const XML_Char* pname, const XML_Char** ppattribute)
{
    TESKXML_PARSE* pparse = static_cast<TESKXML_PARSE*>(puser);
    size_t nlen = strlen(pname);

    if (pparse->result == TESKXML_RET_SUCCESS) {
        teskxml_checkelement(pparse, pname, nlen, ppattribute[0]);
    }
    if (pparse->result == TESKXML_RET_SUCCESS) {
        teskxml_enter(pparse, pname, nlen);
    }
}

static void teskxml_onend(void* puser, const XML_Char*)
{
    TESKXML_PARSE* pparse = static_cast<TESKXML_PARSE*>(puser);
    const TESKXML_NODE* pnode = nullptr;

    if (pparse->result == TESKXML_RET_SUCCESS) {
        pnode = &pparse->pdoc->pnode[pparse->current];
        if (!pnode->branch && !teskxml_doc_endtext(pparse->pdoc)) {
            teskxml_refuse(pparse, TESKXML_RET_FAIL_LIMIT, "the values do not fit");
        }
        pparse->current = pnode->parent;
        pparse->depth--;
        pparse->divided = false;
    }
}

static void teskxml_addvalue(TESKXML_PARSE* pparse, const char* ptext, size_t nlen)
{
    const TESKXML_NODE* pnode = &pparse->pdoc->pnode[pparse->current];

    if (pnode->branch) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_FORBIDDEN, "text where only elements may be, in %s",
                       teskxml_shown(teskxml_doc_name(pparse->pdoc, pparse->current)).text);
    } else if (pparse->divided) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_FORBIDDEN, "text behind a comment in the value of %s",
                       teskxml_shown(teskxml_doc_name(pparse->pdoc, pparse->current)).text);
    } else if (pnode->valuelen + nlen > TESKXML_MAX_VALUE) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_LIMIT, "the value of %s is longer than %d",
                       teskxml_shown(teskxml_doc_name(pparse->pdoc, pparse->current)).text, TESKXML_MAX_VALUE);
    } else if (!teskxml_doc_addtext(pparse->pdoc, ptext, nlen)) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_LIMIT, "the values do not fit");
    }
}

/* A text may come in any number of pieces. Blanks are no part of the value as long as none of its text has come, or
   none may come any more. */
static void teskxml_ontext(void* puser, const XML_Char* ptext, int nlen)
{
    TESKXML_PARSE* pparse = static_cast<TESKXML_PARSE*>(puser);

    if (pparse->result == TESKXML_RET_SUCCESS) {
        if (pparse->divided || pparse->pdoc->pnode[pparse->current].valuelen == 0) {
            for (; nlen > 0 && teskxml_isblank(*ptext); nlen--) {
                ptext++;
            }
        }
        if (nlen > 0) {
            teskxml_addvalue(pparse, ptext, static_cast<size_t>(nlen));
        }
    }
}

/* What reads as two values must not be taken for one. */
static void teskxml_oncomment(void* puser, const XML_Char*)
{
    TESKXML_PARSE* pparse = static_cast<TESKXML_PARSE*>(puser);

    pparse->divided = pparse->depth > 0 && pparse->pdoc->pnode[pparse->current].valuelen > 0;
}

/* Sees what has no handler of its own, and so a DOCTYPE by its first word; a handler for it would come at its end or
   its "[". */
static void teskxml_onother(void* puser, const XML_Char* ptext, int nlen)
{
    static constexpr char gdoctype[] = "<!DOCTYPE";
    TESKXML_PARSE* pparse = static_cast<TESKXML_PARSE*>(puser);

    if (pparse->result == TESKXML_RET_SUCCESS && static_cast<size_t>(nlen) == sizeof(gdoctype) - 1 &&
        memcmp(ptext, gdoctype, sizeof(gdoctype) - 1) == 0) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_FORBIDDEN, "a DOCTYPE");
    }
}

static void teskxml_oninstruction(void* puser, const XML_Char* ptarget, const XML_Char*)
{
    TESKXML_PARSE* pparse = static_cast<TESKXML_PARSE*>(puser);

    if (pparse->result == TESKXML_RET_SUCCESS) {
        teskxml_refuse(pparse, TESKXML_RET_FAIL_FORBIDDEN, "the processing instruction %s",
                       teskxml_shown(ptarget).text);
    }
}

/* A content without NUL bytes is taken for UTF-8; this refuses one that says it is something else. */
static void teskxml_ondeclaration(void* puser, const XML_Char*, const XML_Char* pencoding, int)
{
    if (pencoding != nullptr && strcasecmp(pencoding, "UTF-8") != 0) {
        teskxml_refuse(static_cast<TESKXML_PARSE*>(puser), TESKXML_RET_FAIL_SYNTAX, "the encoding %s, not UTF-8",
                       teskxml_shown(pencoding).text);
    }
}

/* Tells the place of "root", as what is missing has none. */
static int teskxml_checksection(const TESKXML_DOC* pdoc, const char* psection)
{
    int nfuncret = TESKXML_RET_SUCCESS;

    if (psection != nullptr && pdoc->nodes < 2) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_SCOPE, pdoc->pfile, pdoc->pnode[0].line, pdoc->pnode[0].column,
                                "there is no element %s in /root", psection);
    }
    return nfuncret;
}

static void teskxml_run(TESKXML_PARSE* pparse)
{
    int nsize = static_cast<int>(pparse->pend - pparse->pdata);
    enum XML_Status nstatus = XML_STATUS_OK;
    enum XML_Error nerror = XML_ERROR_NONE;

    XML_SetUserData(pparse->parser, pparse);
    XML_SetElementHandler(pparse->parser, teskxml_onstart, teskxml_onend);
    XML_SetCharacterDataHandler(pparse->parser, teskxml_ontext);
    XML_SetCommentHandler(pparse->parser, teskxml_oncomment);
    XML_SetDefaultHandler(pparse->parser, teskxml_onother);
    XML_SetProcessingInstructionHandler(pparse->parser, teskxml_oninstruction);
    XML_SetXmlDeclHandler(pparse->parser, teskxml_ondeclaration);

    nstatus = XML_Parse(pparse->parser, pparse->pdata, nsize, XML_TRUE);
    if (nstatus != XML_STATUS_OK && pparse->result == TESKXML_RET_SUCCESS) {
        nerror = XML_GetErrorCode(pparse->parser);
        teskxml_refuse(pparse, nerror == XML_ERROR_NO_MEMORY ? TESKXML_RET_FAIL_MEMORY : TESKXML_RET_FAIL_SYNTAX, "%s",
                       XML_ErrorString(nerror));
    }
}

int teskxml_parse(PTESKXML_DOC pdoc, const char* psection, const char* pdata, size_t nsize)
{
    TESKXML_PARSE parse = {};

    parse.pdoc = pdoc;
    parse.current = TESKXML_TOP;
    parse.psection = psection;
    parse.pdata = pdata;
    parse.pend = pdata + nsize;
    parse.pline = pdata;
    parse.pbreak = teskxml_nextbreak(pdata, parse.pend);
    parse.line = 1;
    /* The parser would take UTF-16 for what it is, whatever it is told; no content of that kind is without these. */
    if (memchr(pdata, '\0', nsize) != nullptr) {
        parse.result = teskxml_fail(TESKXML_RET_FAIL_SYNTAX, pdoc->pfile, 0, 0, "a NUL byte, so it is not UTF-8 text");
        goto monp_exit_func;
    }
    parse.parser = XML_ParserCreate("UTF-8");
    if (parse.parser == nullptr) {
        parse.result = teskxml_fail(TESKXML_RET_FAIL_MEMORY, pdoc->pfile, 0, 0, "out of memory");
        goto monp_exit_func;
    }
    teskxml_run(&parse);
    if (parse.result == TESKXML_RET_SUCCESS) {
        parse.result = teskxml_checksection(pdoc, psection);
    }
    XML_ParserFree(parse.parser);

monp_exit_func:
    return parse.result;
}
