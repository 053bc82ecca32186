/*
 * Tells the operations of all headers whether the library is open.
 */
#ifndef TESKXML_OPEN_H
#define TESKXML_OPEN_H

namespace teskxml {

/*
 * Result: TESKXML_RET_SUCCESS, or TESKXML_RET_FAIL_NOTOPEN, which is then recorded as the last failure.
 */
int check_open();

} // namespace teskxml

#endif
