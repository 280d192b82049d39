import { spawn, spawnSync, type ChildProcess } from "node:child_process";
import { once } from "node:events";
import { mkdtemp, rm, writeFile } from "node:fs/promises";
import { connect, createServer, type Socket } from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { chromium, type Browser, type Page } from "@playwright/test";
import { connection, expect, logRows, slider, test } from "./fixtures";
import { bin, volumeUri, web } from "./host";

/** The network between the page and the host is cut: nothing is closed, nothing arrives any more. */

const noticedWithinMs = 10_000;
const gap = /Not connected from .* to .* \(\d+\.\d s\)\./;

/** Expects the page to notice a cut in time, to show it, and to recover by itself after `mend`. */
async function expectCutIsSeen(page: Page, { cut, mend, write }: Record<"cut" | "mend", () => unknown> & { write: (value: number) => Promise<void> }) {
  const lost = page.evaluate(
    () =>
      new Promise<number>((resolve) => {
        const element = document.querySelector(".connection")!;
        // A busy machine may let the page wait: such time does not count.
        let after = 0;
        let last = performance.now();
        const timer = setInterval(() => {
          const now = performance.now();
          after += Math.min(now - last, 200);
          last = now;
          if (element.getAttribute("data-state") !== "waiting") return;
          clearInterval(timer);
          resolve(after);
        }, 100);
      }),
  );
  await cut();
  const after = await lost;
  console.log(`a cut network was noticed after ${(after / 1000).toFixed(1)} s`);
  expect(after).toBeLessThan(noticedWithinMs);
  await expect(connection(page)).toContainText("Disconnected");
  await expect(slider(page)).toBeDisabled();
  await write(61);
  await mend();
  await expect(connection(page)).toHaveAttribute("data-state", "open");
  await expect(logRows(page, "Notifications").filter({ hasText: gap })).toHaveCount(1);
  // What happened in the gap is read again, and what follows is notified again.
  await expect(slider(page)).toHaveValue("61");
  await write(62);
  await expect(slider(page)).toHaveValue("62");
  await expect(logRows(page, "Notifications").first()).toContainText("volValue 62");
}

/** A way to a port that can stop passing bytes on, in both directions, and closes nothing then. */
async function createWay(port: number) {
  const sockets = new Set<Socket>();
  let passes = true;
  const server = createServer((near) => {
    const far = connect(port, "127.0.0.1");
    for (const [one, other] of [[near, far], [far, near]] as const) {
      sockets.add(one);
      one.on("data", (bytes) => passes && other.write(bytes));
      one.on("end", () => passes && other.end());
      one.on("error", () => other.destroy());
      one.on("close", () => sockets.delete(one));
    }
  });
  server.listen(0, "127.0.0.1");
  await once(server, "listening");
  return {
    port: (server.address() as { port: number }).port,
    connections: () => sockets.size,
    cut: () => (passes = false),
    // The bytes that were lost cannot come any more, so the connections of the time before end.
    mend() {
      for (const socket of sockets) socket.destroy();
      passes = true;
    },
    close() {
      server.close();
      for (const socket of sockets) socket.destroy();
    },
  };
}

const launchOptions = () => test.info().project.use.launchOptions!;

/** A page in a browser of its own. */
async function openIn(browser: Browser, origin: string, token: string): Promise<Page> {
  const storageState = { cookies: [], origins: [{ origin, localStorage: [{ name: "dtv.token", value: token }] }] };
  const page = await (await browser.newContext({ storageState })).newPage();
  await page.goto(origin);
  await expect(connection(page)).toHaveAttribute("data-state", "open");
  await expect(slider(page)).toBeEnabled();
  return page;
}

test("a way that passes nothing on is noticed, and the page recovers by itself", async ({ host }) => {
  const { host: address, port, origin } = new URL(host.origin);
  const way = await createWay(Number(port));
  // The page's address stays the host's own: a host refuses requests for another.
  const args = [...launchOptions().args!, `--host-resolver-rules=MAP ${address} 127.0.0.1:${way.port}`];
  const browser = await chromium.launch({ ...launchOptions(), args });
  try {
    const page = await openIn(browser, origin, host.token!);
    expect(way.connections(), "connections through the way").toBeGreaterThan(0);
    await expectCutIsSeen(page, { cut: way.cut, mend: way.mend, write: (value) => host.write(volumeUri, value) });
  } finally {
    await browser.close();
    way.close();
  }
});

// ---- a cable between two network namespaces: that of the host and that of the browser

// A user other than the superuser becomes superuser in a user namespace.
const isRoot = process.getuid?.() === 0;
const own = isRoot ? ["--net"] : ["--user", "--map-root-user", "--net"];
const enter = isRoot ? ["--net"] : ["--user", "--preserve-credentials", "--net"];
const hostAddress = "192.0.2.1";
const port = 8080;

interface Ends {
  /** A command that runs in the host's or the browser's namespace. */
  atHost: (...command: string[]) => string[];
  atBrowser: (...command: string[]) => string[];
  end(): void;
}

/** Makes the namespaces and the cable. They last as long as the processes that hold them. Throws where that is impossible. */
async function layCable(): Promise<Ends> {
  const holders: ChildProcess[] = [];
  const end = () => holders.forEach((holder) => holder.stdin!.end());
  const hold = async ([program, ...words]: string[]) => {
    const holder = spawn(program!, [...words, "sh", "-c", "echo ready && exec cat"], { stdio: ["pipe", "pipe", "pipe"] });
    holders.push(holder);
    let said = "";
    holder.stderr.on("data", (bytes) => (said += bytes));
    const ready = await Promise.race([
      once(holder.stdout, "data").then(() => true),
      once(holder, "close").then(() => false),
      once(holder, "error").then(([reason]) => ((said += reason), false)),
    ]);
    if (!ready) throw new Error(said.trim());
    return (...command: string[]) => ["nsenter", "--target", String(holder.pid), ...enter, "--", ...command];
  };
  const ip = ([program, ...words]: string[]) => {
    const { status, stderr, error } = spawnSync(program!, words, { encoding: "utf8" });
    if (status !== 0) throw new Error(error?.message ?? stderr.trim());
  };
  try {
    const atHost = await hold(["unshare", ...own]);
    // In the user namespace of the host's, so that the cable may have its ends in both.
    const atBrowser = await hold(atHost("unshare", "--net"));
    const browserPid = String(holders[1]!.pid);
    ip(atHost("ip", "link", "set", "lo", "up"));
    // Also on the loopback interface, so that dtvctl reaches the host while the cable is cut.
    ip(atHost("ip", "address", "add", `${hostAddress}/32`, "dev", "lo"));
    ip(atHost("ip", "link", "add", "near", "type", "veth", "peer", "name", "far", "netns", browserPid));
    ip(atHost("ip", "address", "add", `${hostAddress}/24`, "dev", "near"));
    ip(atHost("ip", "link", "set", "near", "up"));
    ip(atBrowser("ip", "link", "set", "lo", "up"));
    ip(atBrowser("ip", "address", "add", "192.0.2.2/24", "dev", "far"));
    ip(atBrowser("ip", "link", "set", "far", "up"));
    return { atHost, atBrowser, end };
  } catch (reason) {
    end();
    throw reason;
  }
}

test("a network that is down is noticed, and the page recovers by itself when it is up again", async ({}) => {
  let ends: Ends;
  try {
    ends = await layCable();
  } catch (reason) {
    test.skip(true, `no network namespaces here: ${String(reason)}`);
    return;
  }
  const folder = await mkdtemp(join(tmpdir(), "dtv-browser-cut-"));
  const run = async ([program, ...words]: string[], env = {}) => {
    const child = spawn(program!, words, { stdio: "ignore", env: { ...process.env, ...env } });
    const [code] = await once(child, "close");
    expect(code, words.join(" ")).toBe(0);
  };
  const [program, ...words] = ends.atHost(
    join(bin, "dtv-host"), "--listen", `${hostAddress}:${port}`, "--state", join(folder, "state"), "--web", web,
  );
  const host = spawn(program!, words, { stdio: ["ignore", "pipe", "ignore"] });
  let browser: Browser | undefined;
  try {
    let said = "";
    host.stdout.on("data", (bytes) => (said += bytes));
    const told = () => /^dtv-host: (http:\S+)\/#token=([0-9a-f]+)$/m.exec(said);
    await expect.poll(told).not.toBeNull();
    const [, origin, token] = told()!;

    const { executablePath, ...options } = launchOptions();
    const wrapper = join(folder, "browser");
    await writeFile(wrapper, `#!/bin/sh\nexec ${ends.atBrowser(executablePath!).join(" ")} "$@"\n`, { mode: 0o755 });
    browser = await chromium.launch({ ...options, executablePath: wrapper });
    const page = await openIn(browser, origin!, token!);
    const env = { DTV_HOST: `${hostAddress}:${port}`, DTV_TOKEN: token };
    await expectCutIsSeen(page, {
      cut: () => run(ends.atHost("ip", "link", "set", "near", "down")),
      mend: () => run(ends.atHost("ip", "link", "set", "near", "up")),
      write: (value) => run(ends.atHost(join(bin, "dtvctl"), "set", volumeUri, String(value)), env),
    });
  } finally {
    await browser?.close();
    if (host.exitCode === null && host.kill("SIGKILL")) await once(host, "close");
    ends.end();
    await rm(folder, { recursive: true, force: true });
  }
});
