// Starts a kwdriver for a mocha test file: a free port of 127.0.0.1, a Wine
// prefix of the file's own, stopped by its process (group) id afterwards.
// KW_DRIVER_EXE runs a built kwdriver.exe directly under cmake/wine-run.sh;
// without it scripts/driver.sh starts it (building what is missing).
'use strict';
const { spawn, spawnSync } = require('node:child_process');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');

const root = path.resolve(__dirname, '..', '..', '..');
const apps = process.env.KW_QT_APPS || path.join(root, '..', 'shared', 'qt48-apps');
const sdk = process.env.KW_QT_SDK || path.join(root, '..', 'shared', 'qt48-sdk');
const wineRoot = process.env.KW_WINE_ROOT || path.join(root, 'build', 'wine');

function appsPresent() {
  return fs.existsSync(path.join(apps, 'calculator.exe')) && fs.existsSync(path.join(sdk, 'lib'));
}

function appPath(name) {
  return path.join(apps, `${name}.exe`);
}

function freePort() {
  return new Promise((resolve, reject) => {
    const server = net.createServer();
    server.once('error', reject);
    server.listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

async function startDriver(name, timeoutMs = 240000) {
  const port = await freePort();
  const folder = path.join(wineRoot, `webdriver_${name}`);
  fs.mkdirSync(folder, { recursive: true });
  // Its prefix is made from the template the other prefixes share.
  const env = {
    ...process.env,
    KW_WINE_ROOT: folder,
    WINEPREFIX: path.join(folder, 'driver'),
    KW_WINE_TEMPLATE: process.env.KW_WINE_TEMPLATE || path.join(wineRoot, '.template'),
  };
  const args = ['--port', String(port), '--host', '127.0.0.1'];
  const command = process.env.KW_DRIVER_EXE
    ? [path.join(root, 'cmake', 'wine-run.sh'), '--prefix', 'driver', '--display', process.env.KW_DRIVER_EXE, ...args]
    : [path.join(root, 'scripts', 'driver.sh'), ...args];
  const log = fs.openSync(path.join(folder, `driver-${port}.log`), 'w');
  // A process group of its own (detached), so that stopping it reaches wine-run.sh's children.
  const child = spawn(command[0], command.slice(1), { env, detached: true, stdio: ['ignore', log, log] });
  let exited = null;
  child.on('exit', (code) => { exited = code; });
  const url = `http://127.0.0.1:${port}`;
  const deadline = Date.now() + timeoutMs;
  for (;;) {
    if (exited !== null) throw new Error(`kwdriver ended with status ${exited}; see ${folder}`);
    try {
      const response = await fetch(`${url}/status`);
      const body = await response.json();
      if (body && body.value && 'ready' in body.value) break;
    } catch (_) { /* not listening yet */ }
    if (Date.now() > deadline) throw new Error(`kwdriver did not answer on ${url}`);
    await new Promise((r) => setTimeout(r, 500));
  }
  return {
    port,
    url,
    async stop() {
      // SIGINT first: Wine hands it to kwdriver as a Ctrl+C, on which it
      // ends its sessions and the applications it launched.
      for (const [signal, waitMs] of [['SIGINT', 25000], ['SIGTERM', 10000], ['SIGKILL', 10000]]) {
        if (exited !== null) break;
        try { process.kill(-child.pid, signal); } catch (_) { break; }
        const until = Date.now() + waitMs;
        while (exited === null && Date.now() < until) await new Promise((r) => setTimeout(r, 200));
      }
      // The applications its sessions launched live in this prefix alone.
      if (fs.existsSync(path.join(env.WINEPREFIX, 'system.reg'))) spawnSync('wineserver', ['-k'], { env, stdio: 'ignore' });
      fs.closeSync(log);
    },
  };
}

module.exports = { appsPresent, appPath, startDriver };
