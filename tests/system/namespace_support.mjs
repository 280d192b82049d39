// Network namespaces of the tests, and the host and dtvctl in them: nothing on the machine's network takes part.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { run, start } from './cli_support.mjs';
import { dtvHost, folder, within } from './host_support.mjs';

// A user other than the superuser becomes superuser in a user namespace.
const own = process.getuid() === 0 ? ['--net'] : ['--user', '--map-root-user', '--net'];
const enter = process.getuid() === 0 ? ['--net'] : ['--user', '--preserve-credentials', '--net'];

// Why a namespace with these interfaces, which shell commands make, cannot be created here, or false.
export function missingNamespace(commands) {
  const tried = spawnSync('unshare', [...own, 'sh', '-ec', commands.join('\n')], { encoding: 'utf8' });
  if (tried.error) return `unshare does not run here: ${tried.error.message}`;
  return tried.status !== 0 && `no such network namespace here: ${tried.stderr.trim()}`;
}

// A namespace with a host in it. The kernel removes the namespace when its processes have ended; the one that keeps it ends
// with its input, at the latest when the test's process ends.
export async function hostInNamespace(t, commands, { args = [], state = folder(t) } = {}) {
  const holder = spawn('unshare', [...own, 'sh', '-ec', [...commands, 'echo ready', 'exec cat'].join('\n')], {
    stdio: ['pipe', 'pipe', 'inherit'],
  });
  const ended = new Promise((resolve) => holder.on('close', resolve));
  t.after(async () => {
    holder.stdin.end();
    await ended;
  });
  await within(new Promise((resolve) => holder.stdout.once('data', resolve)), 'network namespace');
  const inside = (program, words) => ['nsenter', ['--target', String(holder.pid), ...enter, '--', program, ...words]];

  const host = start(...inside(dtvHost, ['--listen', '127.0.0.1:0', '--state', state, ...args]));
  t.after(() => host.stop());
  let told;
  while (!told) told = /^dtv-host: http:\/\/(127\.0\.0\.1:\d+)\/#token=([0-9a-f]+)$/.exec(await host.line());
  const env = { DTV_HOST: told[1], DTV_TOKEN: told[2] };
  // The output of a program that has to succeed.
  const done = async (program, ...words) => {
    const { code, stdout, stderr } = await run(...inside(program, words), { env });
    assert.equal(code, 0, `${program} ${words.join(' ')}: ${stderr}`);
    return stdout;
  };
  return { inside, env, done, address: told[1] };
}
