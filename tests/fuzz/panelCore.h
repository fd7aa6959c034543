#pragma once

class updateCore;

/**
 * The one core of a target's process, made on a panel of its own (tests/in-sandbox) with a silent bus. Its
 * link thread has ended: the caller is in its place. Lives until the process ends.
 */
updateCore& panelCore();
