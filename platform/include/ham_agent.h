/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * ham_agent: the switch's process-health agent, as used by the control
 * daemons. Both calls return 0 on success.
 *
 * Host implementation (platform/ham): each call prints one line on standard
 * error, "ham: ham_agent_init()" and "ham: reg_process_exit_action(<a>, <b>)".
 * HAM_AGENT_INIT_RESULT and HAM_AGENT_REG_RESULT, when set, are the integers
 * the two calls return.
 */
#ifndef HAM_AGENT_H
#define HAM_AGENT_H

#ifdef __cplusplus
extern "C" {
#endif

int ham_agent_init(void);
int reg_process_exit_action(int action, int arg);

#ifdef __cplusplus
}
#endif

#endif /* HAM_AGENT_H */
