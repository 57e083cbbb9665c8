// A static server for the page on this computer. The worker waits for the
// answer to a Yes/No question on shared memory, which browsers allow only
// to pages served with the two cross-origin isolation headers below.
//   node web/serve.mjs FOLDER [PORT]
import { createReadStream, statSync } from 'node:fs';
import { createServer } from 'node:http';
import { extname, join, normalize, resolve } from 'node:path';

const types = {
  '.html': 'text/html; charset=utf-8', '.js': 'text/javascript; charset=utf-8', '.mjs': 'text/javascript; charset=utf-8',
  '.css': 'text/css; charset=utf-8', '.wasm': 'application/wasm', '.png': 'image/png', '.json': 'application/json',
};

export function serve(folder, port = 0, host = '127.0.0.1') {
  const root = resolve(folder);
  const server = createServer((request, response) => {
    const path = normalize(decodeURIComponent(new URL(request.url, 'http://x').pathname));
    let file = join(root, path);
    if (!file.startsWith(root)) return response.writeHead(403).end();
    try {
      if (statSync(file).isDirectory()) file = join(file, 'index.html');
      statSync(file);
    } catch {
      return response.writeHead(404).end('not found');
    }
    response.writeHead(200, {
      'Content-Type': types[extname(file)] || 'application/octet-stream',
      'Cross-Origin-Opener-Policy': 'same-origin',
      'Cross-Origin-Embedder-Policy': 'require-corp',
      'Cache-Control': 'no-cache',
    });
    createReadStream(file).pipe(response);
  });
  return new Promise((done) => server.listen(port, host, () => done(server)));
}

if (import.meta.url === `file://${process.argv[1]}`) {
  const server = await serve(process.argv[2] || 'build-web', Number(process.argv[3] || 8021));
  console.log(`Kestro's page: http://127.0.0.1:${server.address().port}/`);
}
