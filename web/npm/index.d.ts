// Flairize's picture effects as WebAssembly, for Node and browsers.

/** A slider the effect shows, with its command option and its range. */
export interface Slider {
  /** 1, 2 or 3: the slider's position (the command's --p1, --p2, --p3). */
  readonly slider: 1 | 2 | 3;
  /** The command's option without dashes, and the key in render options: "amount", "angle", ... */
  readonly option: string;
  /** The label the editor shows. */
  readonly label: string;
  readonly default: number;
  readonly minimum: number;
  readonly maximum: number;
  /** "" or the unit of one step in words, such as "1/255 turn". */
  readonly unit: string;
  /** What the slider does, in the effect's own terms. */
  readonly meaning: string;
}

export interface Effect {
  /** The effect's index (0..37), as in .flr settings blocks and `flairize list`. */
  readonly index: number;
  readonly name: string;
  readonly slug: string;
  /** One line: what the effect does. */
  readonly description: string;
  readonly category: string;
  /** false for the hidden effects the editor does not list. */
  readonly offered: boolean;
  /** The result is mixed with the source by the progress. */
  readonly fadesIn: boolean;
  /** The effect paints with the colour option. */
  readonly usesColour: boolean;
  readonly sliders: readonly Slider[];
}

/** RGBA, 4 bytes a pixel, rows top first: an ImageData or any object of this shape. */
export interface Picture {
  readonly data: Uint8ClampedArray | Uint8Array;
  readonly width: number;
  readonly height: number;
}

/** The rendered picture: an ImageData where the environment has one (browsers), else this plain object. */
export interface RenderedPicture {
  readonly data: Uint8ClampedArray;
  readonly width: number;
  readonly height: number;
}

/** An effect by index, slug or name (case, spaces and dashes ignored), or from effects(). */
export type EffectChoice = number | string | Effect;

export type Direction = 'Backward' | 'Cycle' | 'Forward' | 'Reverse Cycle' | 0 | 1 | 2 | 3;

/** Colour as a person types it, red first: "#1a2b3c", "1a2b3c", "#abc", or 0x1a2b3c. */
export type Colour = string | number;

export interface SettingsOptions {
  /** Sliders by the effect's option names (0..255); unset ones keep the effect's defaults. */
  [slider: string]: number | string | boolean | undefined;
  /** Sliders by position, 0..255. */
  p1?: number;
  p2?: number;
  p3?: number;
  /** How far the effect has advanced, 0..1 (rounded to the nearest of 16384 steps). Default 1. */
  progress?: number;
  /** The same in steps, 0..16384 (as `flairize render --progress 8192`). */
  progressSteps?: number;
  colour?: Colour;
  color?: Colour;
}

export interface RenderOptions extends SettingsOptions {
  /** false: the filter's own result without the progress mix (`--filter-only`). Default true. */
  mix?: boolean;
  /** 4 (default): render with the alpha channel as a 32-bit picture; 3: the colours alone, as a 24-bit
   *  picture, alpha 255 in the result. */
  channels?: 3 | 4;
}

export interface BlockOptions extends SettingsOptions {
  direction?: Direction;
}

export interface SettingsRead {
  readonly effect: Effect;
  /** The effect's sliders by option name. */
  readonly sliders: Record<string, number>;
  /** P1, P2, P3 as stored. */
  readonly p: [number, number, number];
  readonly direction: string;
  /** The direction field as stored (its low two bits are the direction). */
  readonly directionField: number;
  /** "#rrggbb" */
  readonly colour: string;
  readonly progressSteps: number;
}

export interface LoadOptions {
  /** Where the .wasm is (a URL or path, relative to this module), or its bytes. Default: beside this module. */
  wasm?: string | URL | Uint8Array | ArrayBuffer;
}

export declare class Flairize {
  private constructor(engine: unknown);
  /** Starts the engine: reads (Node) or fetches (browsers) flairize-engine.wasm beside this module. */
  static load(options?: LoadOptions): Promise<Flairize>;
  /** The direction names, by their index 0..3. */
  readonly directions: readonly string[];
  /** The effect of a new settings record. */
  readonly defaultEffect: Effect;
  /** Every effect, by index. */
  effects(): Effect[];
  /** The offered effects in the editor's list order. */
  offeredEffects(): Effect[];
  /** Looks up an effect; throws RangeError for a name or index no effect has. */
  effect(which: EffectChoice): Effect;
  /** Renders into a new RGBA picture, bit for bit as `flairize render`. Throws on bad options or pictures. */
  render(picture: Picture, effect: EffectChoice, options?: RenderOptions): RenderedPicture;
  /** The progress (0..16384) at a sequence position (0..16384), speed (-128..127) and direction. */
  frameProgress(position: number, speed?: number, direction?: Direction): number;
  /** The position of frame `frame` of `frames`: frame * 16384 / (frames - 1); one frame sits at 16384. */
  sequencePosition(frame: number, frames: number): number;
  /** The 20-byte settings block of a .flr file (progress: a new record's, 0, unless given). */
  settingsBlock(effect: EffectChoice, options?: BlockOptions): Uint8Array;
  /** Reads a 20-byte settings block. */
  readSettingsBlock(bytes: Uint8Array | ArrayBuffer): SettingsRead;
}

export declare function load(options?: LoadOptions): Promise<Flairize>;
export default Flairize;
