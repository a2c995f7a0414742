#!/usr/bin/env node
// What our client calls: the resources of store.md, with node-coap.
//
//   node_store.js <folder that has node_modules>
'use strict';

const path = require('path');
const coap = require(path.join(path.resolve(process.argv[2]), 'node_modules', 'coap'));

const DELAY_MS = 1000;

function pattern(size) {
  const bytes = Buffer.alloc(size, '.');
  for (let at = 0; at < size; at += 50) bytes[at] = 97 + (at / 50) % 26;
  return bytes;
}

function end(answer, code, payload, format = 'text/plain') {
  answer.code = code;
  if (payload !== undefined) answer.setOption('Content-Format', format);
  answer.end(payload);
}

function optionOf(request, name) {
  const found = request._packet.options.find((each) => each.name === name);
  return found && found.value;
}

const fixed = (code, payload) => (request, answer) => end(answer, code, payload);

function takePattern(request, answer) {
  const isGood = request.payload.equals(pattern(request.payload.length));
  end(answer, isGood ? '2.04' : '4.00');
}

function query(request, answer) {
  end(answer, '2.05', request.url.split('?')[1].replaceAll('&', ' '));
}

function location(request, answer) {
  answer.setOption('Location-Path', ['location', '1'].map((part) => Buffer.from(part)));
  end(answer, '2.01');
}

function accept(request, answer) {
  const wanted = request.headers.Accept;
  if (wanted === undefined || wanted === 'text/plain') end(answer, '2.05', 'hello');
  else if (wanted === 'application/json') end(answer, '2.05', '{"text":"hello"}', wanted);
  else end(answer, '4.06');
}

// Validate has an ETag, which is its version.
class Validate {
  constructor() {
    this.text = 'hello';
    this.version = 1;
  }

  isCurrent(tag) { return tag && Buffer.from(tag).equals(Buffer.of(this.version)); }

  GET(request, answer) {
    answer.setOption('ETag', [Buffer.of(this.version)]);
    if (this.isCurrent(optionOf(request, 'ETag'))) end(answer, '2.03');
    else end(answer, '2.05', this.text);
  }

  PUT(request, answer) {
    const wanted = optionOf(request, 'If-Match');
    if (optionOf(request, 'If-None-Match') || (wanted && !this.isCurrent(wanted))) {
      return end(answer, '4.12');
    }
    this.text = request.payload;
    this.version += 1;
    return end(answer, '2.04');
  }
}

// Observed keeps the answers to its observers open: they take a notification each.
class Observed {
  constructor(content, made = (payload) => payload) {
    this.content = content;
    this.made = made;
    this.streams = new Set();
  }

  write(stream) {
    stream.setOption('Content-Format', 'text/plain');
    stream.write(this.content);
  }

  GET(request, answer) {
    if (request.headers.Observe !== 0) return end(answer, '2.05', this.content);
    this.streams.add(answer);
    answer.on('finish', () => this.streams.delete(answer));
    answer.statusCode = '2.05';
    return this.write(answer);
  }

  PUT(request, answer) {
    this.content = this.made(request.payload);
    end(answer, '2.04');
    for (const stream of this.streams) this.write(stream);
  }

  DELETE(request, answer) {
    end(answer, '2.02');
    for (const stream of this.streams) {
      stream._packet.options = [];
      stream.statusCode = '4.04';
      stream.write(Buffer.alloc(0));
      stream.end();
    }
  }
}

const served = {
  test: {
    GET: fixed('2.05', 'hello'),
    PUT: fixed('2.04'),
    POST: (request, answer) => end(answer, '2.04', request.payload.toString().toUpperCase()),
    DELETE: fixed('2.02'),
  },
  'seg1/seg2/seg3': { GET: fixed('2.05', 'hello') },
  query: { GET: query },
  separate: { GET: (request, answer) => setTimeout(() => end(answer, '2.05', 'later'), DELAY_MS) },
  location: { POST: location },
  accept: { GET: accept },
  validate: new Validate(),
  large: { GET: fixed('2.05', pattern(20000)), PUT: takePattern, POST: takePattern },
  'large-echo': { POST: (request, answer) => end(answer, '2.04', request.payload) },
  obs: new Observed('val0'),
  'obs-away': new Observed('val0'),
  'obs-large': new Observed(pattern(3000), (payload) => pattern(Number(payload.toString()))),
};

const links = Object.keys(served)
  .map((uri) => `</${uri}>${uri.startsWith('obs') ? ';obs' : ''}`).join(',');
served['.well-known/core'] = {
  GET: (request, answer) => end(answer, '2.05', links, 'application/link-format'),
};

const server = coap.createServer((request, answer) => {
  const target = served[request.url.split('?')[0].slice(1)];
  if (!target) end(answer, '4.04');
  else if (!target[request.method]) end(answer, '4.05');
  else target[request.method](request, answer);
});
server.on('error', () => {});
server.listen(5683, '127.0.0.2', () => process.stdout.write('serving\n'));
